"""What the publisher removes from the server: what everybody has stored, and nothing else."""

from __future__ import annotations

import json
import time

from commands import json_of
from nats_client import NatsClient
from server import wait_until

NOTE = 24  # bytes in which the application notes a frame
FRAMES = 2000


def kept(hub) -> int:
    """Messages in the stream."""
    with NatsClient(hub.port) as client:
        answer = client.request("$JS.API.STREAM.INFO.tessaline:line3")
    return json.loads(answer)["state"]["messages"]


def trouble(hub) -> str:
    return json_of("fleet", "status", url=hub.url)["sensors"][0].get("trouble", "")


def test_a_small_place_is_used_again_and_again(fleet):
    hub = fleet.hub()
    archive = fleet.subscribe(hub.url)
    publisher = fleet.publish("line3", hub.url, "--keep", "10", spacing=4000).wait_for_frames()
    wait_until(lambda: publisher.truth.stat().st_size > FRAMES * NOTE, 60, "many frames")
    said = publisher.stop()
    assert said["bytes"] > 20e6
    archive.end()
    fleet.store(hub.url, "--strict")
    assert fleet.require_all().delivered == said["strips"]


def test_what_somebody_has_not_stored_stays(fleet):
    hub = fleet.hub()
    publisher = fleet.publish("line3", hub.url, "--keep", "2").wait_for_frames()
    first = fleet.folder / "first.db3"
    begun = fleet.store(hub.url, "--as", "late", file=first)["strips"]
    archive = fleet.subscribe(hub.url)
    wait_until(lambda: "is full" in trouble(hub), 20, "a place that is full")
    late = fleet.start("subscribe", ">", "-o", first, "--as", "late", url=hub.url)
    said = publisher.stop()
    late.end()
    archive.end()
    fleet.store(hub.url)
    assert fleet.require_all().delivered == said["strips"]
    fleet.store(hub.url, "--as", "late", file=first)
    assert fleet.require_all(first).delivered == said["strips"] > begun


def test_what_all_have_stored_goes_a_minute_later(fleet):
    hub = fleet.hub()
    fleet.subscribe(hub.url)
    publisher = fleet.publish("line3", hub.url, spacing=50000).wait_for_frames()
    time.sleep(50)
    early = kept(hub)
    assert hub.unstored("line3") < 0.2 * early
    time.sleep(30)
    assert kept(hub) < 1.45 * early  # a minute and some seconds of eighty
    publisher.stop()
