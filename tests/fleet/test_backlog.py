"""What waits while no server can be reached: in memory, in a file, and what has no room there."""

from __future__ import annotations

import pytest
from commands import json_of
from hub import Hub
from server import wait_until

NOTE = 24       # bytes of a frame in the application's log
SPACING = 40000  # of images, 1.6 MB each: the memory, 16 MB, is full in half a second


def wait_for_images(publisher, count: int) -> None:
    publisher.wait_for_frames(count * NOTE)


@pytest.mark.parametrize("store", [False, True], ids=["memory", "file"])
@pytest.mark.parametrize("drop", ["newest", "oldest"])
def test_what_has_no_room_is_named(fleet, drop, store):
    hub = fleet.adopt(Hub(fleet.folder))
    options = ["--memory", "16", "--drop", drop]
    if store:
        options += ["--store", fleet.folder / "store", "--store-size", "5"]
    publisher = fleet.publish("line3", hub.url, *options, images=True, spacing=SPACING)
    wait_for_images(publisher, 30)
    hub.start()
    during = wait_until(lambda: status_of(hub), 10, "the publisher's answer")
    assert during["dropped_frames"] > 5
    kept = wait_until(lambda: caught_up(hub), 20, "all sent")
    said = publisher.stop()
    stored = fleet.store(hub.url)
    named = fleet.require_every_image(publisher)
    # Also those that a busy machine lost in front of the publisher.
    assert named == said["dropped_frames"] + said["missing_frames"] == stored["missing_named"]
    assert kept["dropped_frames"] == said["dropped_frames"]  # no more since there is a server
    assert stored["images"] == said["images"] - said["dropped_frames"]
    assert stored["unexplained"] == 0


def status_of(hub) -> dict | None:
    sensors = json_of("fleet", "status", "--patience", "0.3", url=hub.url, status=None)["sensors"]
    return next((sensor for sensor in sensors if sensor.get("present")), None)


def caught_up(hub) -> dict | None:
    status = status_of(hub)
    return status if status and status["waiting"] <= 2 else None


def test_strips_that_have_no_room_are_named_by_their_ids(fleet):
    hub = fleet.adopt(Hub(fleet.folder))
    publisher = fleet.publish("line3", hub.url, "--memory", "16", spacing=500)
    wait_until(lambda: publisher.truth.exists() and publisher.truth.stat().st_size > 2200 * 16, 40,
               "more strips than the memory has room for")
    hub.start()
    wait_until(lambda: caught_up(hub), 20, "all sent")
    said = publisher.stop()
    stored = fleet.store(hub.url, "--strict", status=1)
    total = fleet.require_all(named=True)
    assert total.named == said["dropped_frames"] == stored["missing_named"] > 0


def test_the_file_is_enough(fleet):
    """Nothing is dropped while it has room, and it is empty afterwards."""
    hub = fleet.adopt(Hub(fleet.folder))
    store = fleet.folder / "store"
    publisher = fleet.publish("line3", hub.url, "--memory", "16", "--store", store, images=True,
                              spacing=SPACING)
    wait_for_images(publisher, 25)
    hub.start()
    waiting = wait_until(lambda: status_of(hub), 10, "the publisher's answer")
    assert waiting["store_error"] == ""
    said = publisher.stop()
    assert (said["dropped_frames"], said["waiting_file_bytes"]) == (0, 0)
    fleet.store(hub.url)
    assert fleet.require_all().delivered == said["images"]
