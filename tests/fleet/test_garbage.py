"""Messages on a sensor's subjects that no publisher of this version has sent."""

from __future__ import annotations

import json
import time
import zlib

import pytest
from commands import json_of
from nats_client import NatsClient


def headers(kind: str, payload: bytes, sequence: int = 1, **others: str) -> dict[str, str]:
    usual = {"Tessaline-Version": "1", "Tessaline-Kind": kind, "Tessaline-Sensor": "line3",
             "Tessaline-Run": "0123456789abcdef", "Tessaline-Sequence": str(sequence),
             "Tessaline-Stamp": "1700000000000000000",
             "Tessaline-Crc32": f"{zlib.crc32(payload):08x}"}
    return usual | {f"Tessaline-{name.replace('_', '-')}": text for name, text in others.items()}


def messages():
    """Kinds, headers and payloads; all of them are damaged."""
    yield "strips", None, b"no headers at all"
    yield "strips", {}, b""
    yield "strips", headers("strips", b"x") | {"Tessaline-Version": "0"}, b"x"
    yield "strips", headers("strips", b"x", Crc32="00000000"), b"x"
    yield "strips", headers("strips", b"x", Run="../../etc"), b"x"
    yield "strips", headers("strips", b"x") | {"Tessaline-Sequence": "0"}, b"x"
    yield "strips", headers("strips", b"x") | {"Tessaline-Sequence": "9" * 23}, b"x"
    yield "strips", headers("strips", b"x", Part="3/2"), b"x"
    yield "strips", headers("strips", b"x", Frames="9-2"), b"x"
    yield "strips", headers("colours", b"x"), b"x"
    yield "gap", headers("strips", b"x"), b"x"
    for number, (kind, payload) in enumerate([
            ("gap", b"no JSON"), ("gap", b"{}"), ("gap", b'{"reason": 7}'), ("events", b"[]"),
            ("events", b'{"name": "trigger", "value": "x"}'), ("clock", b"\xff\xfe"),
            ("log", b'{"level": {}}'), ("losses", b"null")], 1):
        yield kind, headers(kind, payload, number), payload


def test_garbage_keeps_nobodys_frames(fleet):
    hub = fleet.hub()
    fleet.publish("line3", hub.url, "-t", "0.7").result()
    sent = list(messages())
    with NatsClient(hub.port) as client:
        for kind, head, payload in sent:
            client.publish(f"tessaline.data.{kind}.line3", payload, head)
        client.flush()
    said = fleet.publish("line3", hub.url, "-t", "0.7")
    said.result()
    stored = fleet.store(hub.url)
    assert stored["damaged"] == len(sent)
    assert hub.unstored("line3") == 0  # none of them comes again
    accounts = fleet.account()
    assert accounts["line3"].faults() == 0, accounts


@pytest.mark.parametrize("kind, more", [
    ("strips", {"Count": "4294967295", "Frames": "1-4294967295", "Point-Bytes": "8"}),
    ("strips", {"Sequence": "18446744073709551615"}),
    ("strips", {"Acknowledged": "18446744073709551614", "Sequence": "18446744073709551615"}),
    ("images", {"Size": "4000000000x4000000000"}),
    ("images", {"Size": "10x10", "Part": "1/4000000000", "Rows": "0-9"}),
    ("strips", {"First-Sequence": "1", "Sequence": "1000"}),
], ids=range(6))
def test_absurd_numbers(fleet, kind, more):
    """They may be stored, but nothing else is lost by them."""
    hub = fleet.hub()
    fleet.publish("line3", hub.url, "-t", "0.5").result()
    with NatsClient(hub.port) as client:
        client.publish(f"tessaline.data.{kind}.line3", b"x" * 40,
                       headers(kind, b"x" * 40) | {f"Tessaline-{name}": text
                                                   for name, text in more.items()})
        client.flush()
    after = fleet.publish("line4", hub.url, "-t", "0.5")
    after.result()
    began = time.monotonic()
    stored = json_of("subscribe", ">", "-o", fleet.recording, "-t", "2", url=hub.url)
    assert time.monotonic() - began < 8
    assert stored["sensors"]["line4"]["unexplained"] == 0
    again = json_of("subscribe", ">", "-o", fleet.recording, "-t", "1", url=hub.url)
    assert again["strips"] == 0


def test_nonsense_of_presence(fleet):
    hub = fleet.hub()
    with NatsClient(hub.port) as client:
        client.subscribe("tessaline.control.status")
        client.flush()
        status = fleet.start("fleet", "status", "--patience", "1", url=hub.url)
        question = client.receive()
        for payload in (b"", b"[]", b"{", b'{"sensor": 7}', b'{"sensor": "*"}', b"\xff",
                        json.dumps({"sensor": "line9", "strips": {"a": 1}, "waiting": "x",
                                    "frames_per_second": [], "model": 7}).encode()):
            client.publish(question.reply, payload)
        client.flush()
        said = status.result()
    assert [sensor["sensor"] for sensor in said["sensors"]] in ([], ["line9"])


def test_newer_messages_wait_for_a_newer_program(fleet):
    """Those of other sensors are stored."""
    hub = fleet.hub()
    for name in ("line3", "line4"):
        fleet.publish(name, hub.url, "-t", "0.7").result()
    before = hub.unstored("line3")
    with NatsClient(hub.port) as client:
        head = headers("strips", b"x") | {"Tessaline-Version": "2"}
        client.publish("tessaline.data.strips.line3", b"x", head)
        client.flush()
    said = json_of("subscribe", ">", "-o", fleet.recording, "-t", "4", url=hub.url)
    assert hub.unstored("line3") == 1 < before
    assert hub.unstored("line4") == 0
    assert said["damaged"] == 0
    fleet.require_all()
