"""Settings of several sensors: on all, or on none."""

from __future__ import annotations

import json
import signal

import pytest
from commands import json_of, tool
from nats_client import NatsClient
from server import wait_until

BEFORE, WANTED = 320, 200  # microseconds


@pytest.fixture(name="sensors")
def _sensors(fleet):
    """Publishers without an application, which can be set. Words are options of one."""
    hub = fleet.hub()

    def start(*words: object, model: str = "K3610", name: str = "line3.left",
              **variables: str):
        one = fleet.start("publish", "--name", name, "--virtual", model, "--spacing", "20000",
                          "--exposure", BEFORE, *words, url=hub.url, **variables)
        wait_until(lambda: name in present(hub), 20, f"{name} with frames")
        return one

    hub.sensor = start
    return hub


def present(hub) -> dict[str, dict]:
    answer = json_of("fleet", "status", "--patience", "0.2", url=hub.url, status=None)["sensors"]
    return {sensor["sensor"]: sensor for sensor in answer
            if sensor["present"] and sensor["strips"] > 0}


def recipe(fleet, **settings):
    path = fleet.folder / "recipe.json"
    path.write_text(json.dumps({"recipe": 1, **settings}))
    return path


def exposure_of(hub, name: str):
    """By an order that changes nothing."""
    with NatsClient(hub.port) as client:
        answer = client.request(f"tessaline.control.set.{name}",
                                json.dumps({"recipe": {"recipe": 1}}).encode())
    return json.loads(answer)["before"]["exposure_us"]


def set_all(fleet, hub, pattern: str = ">", **settings):
    return tool("fleet", "set", pattern, "--recipe", recipe(fleet, **settings), "--patience", "0.3",
                url=hub.url)


def test_all_are_set(fleet, sensors):
    sensors.sensor()
    sensors.sensor(name="line3.right")
    sensors.sensor(name="line4")
    done = set_all(fleet, sensors, "line3.*", exposure_us=WANTED)
    assert (done.returncode, done.stdout) == (0, "set 2 sensors\n"), done.stderr
    assert [exposure_of(sensors, name) for name in ("line3.left", "line3.right", "line4")] == [
        WANTED, WANTED, BEFORE]


def test_one_refuses(fleet, sensors):
    """Its product knows five steps of gain."""
    sensors.sensor()
    sensors.sensor(name="line3.right", model="K3810")
    done = set_all(fleet, sensors, exposure_us=WANTED, gain=20)
    assert done.returncode == 1
    assert "nothing was changed; line3.right: " in done.stderr
    assert [exposure_of(sensors, name) for name in ("line3.left", "line3.right")] == [
        BEFORE, BEFORE]


def test_one_is_gone(fleet, sensors):
    sensors.sensor()
    gone = sensors.sensor(name="line3.right")
    gone.kill()
    done = set_all(fleet, sensors, exposure_us=WANTED)
    assert done.returncode == 3
    assert "nothing was changed; not there: line3.right" in done.stderr
    assert exposure_of(sensors, "line3.left") == BEFORE


def test_one_does_not_answer(fleet, sensors):
    """It hangs after it has said that it is there."""
    sensors.sensor()
    hanging = sensors.sensor(name="line3.right")
    hanging.send(signal.SIGSTOP)
    done = set_all(fleet, sensors, exposure_us=WANTED)
    hanging.send(signal.SIGCONT)
    assert done.returncode == 3
    assert "line3.right" in done.stderr
    assert exposure_of(sensors, "line3.left") == BEFORE


def test_one_fails_while_it_is_set(fleet, sensors):
    """Its potentiometer stops answering; the other gets its settings back."""
    sensors.sensor()
    log = fleet.folder / "transcript.txt"
    json_of("capture", "strips", "-n", "1", "-o", fleet.folder / "one.csv", "--virtual", "K3610",
            TESSALINE_BOARD_TRANSCRIPT=str(log))
    started = sum(line.startswith("i2c-1 I2C_RDWR") for line in log.read_text().splitlines())
    assert started > 0
    sensors.sensor(name="line3.right",
                   TESSALINE_BOARD_FAULTS=f"call i2c-1 I2C_RDWR EIO {started}")
    done = set_all(fleet, sensors, exposure_us=WANTED, power_percent=70)
    assert done.returncode == 1
    assert "line3.right: " in done.stderr
    assert "1 sensor put back to the settings from before" in done.stderr
    assert exposure_of(sensors, "line3.left") == BEFORE


def test_an_application_makes_its_settings_itself(fleet, sensors):
    sensors.sensor()
    fleet.publish("line4", sensors.url).wait_for_frames()
    done = set_all(fleet, sensors, exposure_us=WANTED)
    assert done.returncode == 1
    assert "makes its settings itself" in done.stderr
    assert exposure_of(sensors, "line3.left") == BEFORE


@pytest.mark.parametrize("pattern, settings, status, text", [
    ("nobody", {"exposure_us": 100}, 3, "no sensor matches nobody"),
    ("a..b", {"exposure_us": 100}, 2, "names no sensors"),
    (">", {"exposure_us": -1}, 2, "exposure"),
    (">", {"colour": "blue"}, 2, "colour"),
])
def test_what_makes_no_sense(fleet, sensors, pattern, settings, status, text):
    done = set_all(fleet, sensors, pattern, **settings)
    assert done.returncode == status, done.stderr
    assert text in done.stderr


def test_nonsense_instead_of_orders(fleet, sensors):
    publisher = sensors.sensor()
    with NatsClient(sensors.port) as client:
        for verb, payload in (("set", b""), ("set", b"{"), ("set", b"[]"), ("set", b'{"recipe":7}'),
                              ("set", b'{"recipe":{"exposure_us":"x"}}'), ("explode", b"{}"),
                              ("set", b"\xff\xfe"), ("check", b"null")):
            answer = json.loads(client.request(f"tessaline.control.{verb}.line3.left", payload))
            assert answer["error"], (verb, payload, answer)
        client.publish("tessaline.control.set.line3.left", b"{}")  # to nobody
        client.publish("tessaline.control.status", b"\0", reply="x" * 4000)
    assert exposure_of(sensors, "line3.left") == BEFORE
    assert publisher.running()


def test_a_sensor_is_forgotten(fleet, sensors):
    publisher = sensors.sensor()
    refused = tool("fleet", "forget", "line3.left", url=sensors.url)
    assert (refused.returncode, "stop its publisher" in refused.stderr) == (1, True)
    publisher.end()
    refused = tool("fleet", "forget", "line3.left", url=sensors.url)
    assert refused.returncode == 1
    assert "has not stored" in refused.stderr
    fleet.store(sensors.url)
    assert json_of("fleet", "forget", "line3.left", "--dry-run", url=sensors.url)["dry_run"]
    assert tool("fleet", "forget", "line3.left", url=sensors.url).returncode == 0
    again = tool("fleet", "forget", "line3.left", url=sensors.url)
    assert (again.returncode, "nothing is kept" in again.stderr) == (1, True)


def test_a_subscriber_that_does_not_come_back_is_forgotten(fleet):
    hub = fleet.hub()
    fleet.publish("line3", hub.url, "-t", "1").result()
    other = fleet.folder / "other.db3"
    fleet.store(hub.url, "--as", "quality", file=other)
    fleet.publish("line3", hub.url, "-t", "1").result()
    fleet.store(hub.url)
    sensor = json_of("fleet", "status", url=hub.url, status=1)["sensors"][0]
    assert sensor["kept"]["unstored"]["archive"] == 0 < sensor["kept"]["unstored"]["quality"]
    forget = ("fleet", "forget", ">", "--as", "quality")
    refused = tool(*forget, url=hub.url)
    assert (refused.returncode, "has not stored" in refused.stderr) == (1, True)
    assert json_of(*forget, "--discard", "--dry-run", url=hub.url)["dry_run"]
    assert tool(*forget, "--discard", url=hub.url).returncode == 0
    sensor = json_of("fleet", "status", url=hub.url, status=1)["sensors"][0]
    assert sensor["kept"]["unstored"] == {"archive": 0}
