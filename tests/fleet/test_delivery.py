"""What an application got is what is stored, byte for byte."""

from __future__ import annotations

import pytest
import recording
from commands import json_of, tool


def test_the_strips_of_one_sensor(fleet):
    url = fleet.hub().url
    said = fleet.publish("line3.left", url, "-t", "1").result()
    stored = fleet.store(url)
    total = fleet.require_all()
    assert said["strips"] == stored["strips"] == total.delivered > 50
    assert (said["application_status"], said["dropped_frames"], said["waiting"]) == (0, 0, 0)
    assert (stored["unexplained"], stored["damaged"], stored["missing_named"]) == (0, 0, 0)


def test_three_sensors_one_of_them_late(fleet):
    url = fleet.hub().url
    subscriber = fleet.subscribe(url)
    first = [fleet.publish(f"line3.{side}", url, spacing=8000) for side in ("left", "right")]
    for each in first:
        each.wait_for_frames()
    late = fleet.publish("line4", url, spacing=8000).wait_for_frames()
    for each in (*first, late):
        each.stop()
    subscriber.end()
    fleet.store(url)  # what the last moment left
    assert set(fleet.account()) == {"line3.left", "line3.right", "line4"}
    fleet.require_all()


# The camera's driver waits for files on the virtual board, so images come slowly.
@pytest.mark.parametrize("most", [None, "128KB"], ids=["whole", "parts"])
def test_images(fleet, most):
    url = fleet.hub(f"max_payload: {most}" if most else "").url
    fleet.publish("line3.left", url, "-t", "1", spacing=50000, images=True).result()
    stored = fleet.store(url)
    assert stored["images"] >= 5
    assert fleet.require_all().delivered == stored["images"]


def test_strips_in_parts(fleet):
    url = fleet.hub("max_payload: 65536").url
    fleet.publish("line3.left", url, "-t", "1", spacing=2000).result()
    fleet.store(url)
    assert fleet.require_all().delivered > 50


def test_a_server_of_too_small_messages_is_refused(fleet):
    url = fleet.hub("max_payload: 32768").url
    done = tool("publish", "--name", "line3", "--virtual", "K3610", "-t", "0.1", url=url)
    assert done.returncode == 3
    assert "32768 bytes only" in done.stderr
    assert "max_payload" in done.stderr


def points_of(path) -> dict[int, bytes]:
    """What was measured, by frame id, in the file of a recorder or a subscriber."""
    found = {}

    def keep(message):
        data, at = message["data"], 0
        for _ in range(message["strips"]):
            frame_id, _, _, points = recording.STRIP_HEAD.unpack_from(data, at)
            start = at + recording.STRIP_HEAD.size
            at = start + points * message["point_bytes"]
            found[frame_id] = bytes(data[start:at])
        return iter(())

    readers = {"tessaline_msgs/msg/Strips": keep}
    for _ in recording.read(path, readers):
        pass
    return found


def test_a_sensor_without_an_application_is_as_recorded(fleet):
    url = fleet.hub().url
    options = ("--virtual", "K3610", "-t", "0.6", "--spacing", "10000", "--strips",
               "--scene", "plane")
    json_of("publish", "--name", "line3", *options, url=url)
    fleet.store(url)
    recorded = fleet.folder / "recorded.db3"
    json_of("record", "-o", recorded, *options)
    ours, theirs = points_of(fleet.recording), points_of(recorded)
    both = ours.keys() & theirs.keys()
    assert len(both) > 30
    assert {number: ours[number] for number in both} == {number: theirs[number] for number in both}
