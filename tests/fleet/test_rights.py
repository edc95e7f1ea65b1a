"""Keys, and what a server allows to whom with the configuration that the command shows."""

from __future__ import annotations

import json
import time

import pytest
from commands import json_of, tool
from nats_client import NatsClient, Refused
from server import wait_until

WHO = (("sensor", "line3.left"), ("sensor", "line3.right"), ("sensor", "line3"),
       ("subscriber", "archive"), ("operator", "anna"))


class Guarded:
    """A server that knows five users, each by a key."""

    def __init__(self, fleet):
        self._folder = fleet.folder
        self.public: dict[str, str] = {}
        users = []
        for role, name in WHO:
            key = tool("fleet", "key", "-o", self.key(name)).stdout.strip()
            self.public[name] = key
            users.append(tool("fleet", "rights", "--role", role, "--name", name, "--public-key",
                              key).stdout)
        self.users = "authorization { users = [\n" + "\n".join(users) + "] }"
        self.hub = fleet.hub(self.users)
        self.url = self.hub.url

    def key(self, name: str):
        return self._folder / f"{name}.nk"

    def client(self, name: str, inbox: str) -> NatsClient:
        return NatsClient(self.hub.port, seed=self.key(name).read_text().strip(),
                          public_key=self.public[name], inbox=inbox)

    def operator(self, *words: object):
        return tool("fleet", *words, "--nkey", self.key("anna"), url=self.url)

    def add(self, *names: str) -> None:
        for name in names:
            done = self.operator("add", name)
            assert done.returncode == 0, done.stderr


@pytest.fixture(name="guarded")
def _guarded(fleet):
    return Guarded(fleet)


def test_all_commands_work_with_their_rights(fleet, guarded):
    guarded.add("line3.left")
    publisher = fleet.publish("line3.left", guarded.url, "--nkey", guarded.key("line3.left"))
    publisher.wait_for_frames()
    said = json_of("fleet", "status", "--nkey", guarded.key("anna"), url=guarded.url)
    assert said["sensors"][0]["present"]
    publisher.stop()
    fleet.store(guarded.url, "--strict", "--nkey", guarded.key("archive"))
    fleet.require_all()
    assert guarded.operator("forget", "line3.left").returncode == 0


def test_an_operator_sets_a_sensor(fleet, guarded):
    guarded.add("line3.left")
    recipe = fleet.folder / "recipe.json"
    recipe.write_text('{"recipe": 1, "exposure_us": 200}')
    fleet.start("publish", "--name", "line3.left", "--virtual", "K3610", "--nkey",
                guarded.key("line3.left"), url=guarded.url)
    wait_until(lambda: '"strips": 0' not in guarded.operator("status", "--json").stdout, 15,
               "frames")
    done = guarded.operator("set", "line3.left", "--recipe", recipe)
    assert (done.returncode, done.stdout) == (0, "set 1 sensor\n"), done.stderr


def test_a_sensor_that_was_not_added_says_so(fleet, guarded):
    publisher = fleet.publish("line3.left", guarded.url, "--drain", "0.5", "--nkey",
                              guarded.key("line3.left")).wait_for_frames()
    wait_until(lambda: "fleet add line3.left" in guarded.operator("status", "--json").stdout, 15,
               "the trouble in its status")
    publisher.end()
    assert "fleet add line3.left" in publisher.log.read_text()


def test_a_server_that_knew_nobody_for_a_while(fleet, guarded):
    """Its configuration was wrong, and is right again."""
    guarded.add("line3.left")
    publisher = fleet.publish("line3.left", guarded.url, "--nkey", guarded.key("line3.left"),
                              "--drain", "15")
    publisher.wait_for_frames()
    right = guarded.users
    guarded.hub.kill()
    guarded.hub.configure('authorization { user: anna, password: "s3cret" }')
    guarded.hub.start()
    time.sleep(2.5)
    guarded.hub.kill()
    guarded.hub.configure(right)
    guarded.hub.start()
    publisher.stop()
    fleet.store(guarded.url, "--strict", "--nkey", guarded.key("archive"))
    fleet.require_all()


def test_nobody_else_comes_in(fleet, guarded):
    stranger = fleet.folder / "stranger.nk"
    tool("fleet", "key", "-o", stranger)
    for more in ((), ("--nkey", stranger)):
        done = tool("fleet", "status", *more, url=guarded.url)
        assert done.returncode == 4, done.stderr
        assert "does not let us in" in done.stderr


def forbidden(client: NatsClient, subject: str, data: bytes = b"") -> bool:
    """Whether the server says that it may not publish there."""
    client.publish(subject, data)
    try:
        client.flush()
    except Refused as refused:
        return "Permissions Violation" in str(refused)
    return False


@pytest.mark.parametrize("attacker", ["line3.left", "line3"])
def test_a_sensor_cannot_touch_another(guarded, attacker):
    guarded.add("line3.left", "line3.right", "line3")
    other = "line3.right"
    stream = "tessaline:line3:right"
    own = f"tessaline:{attacker.replace('.', ':')}"
    inbox = f"_INBOX.sensor.{attacker.replace('.', ':')}"
    with guarded.client(attacker, inbox) as client:
        # It is a client that may do what is its own.
        assert b"config" in client.request(f"$JS.API.STREAM.INFO.{own}")
        assert not forbidden(client, f"tessaline.data.strips.{attacker}", b"x")
        assert b"purged" in client.request(f"$JS.API.STREAM.PURGE.{own}", b'{"seq": 1}')
        for subject in (
                f"tessaline.data.strips.{other}", f"tessaline.data.gap.{other}",
                f"tessaline.presence.{other}", f"tessaline.control.set.{other}",
                f"tessaline.control.check.{other}", f"tessaline.control.set.{attacker}",
                f"tessaline.delivery.archive.{other}", f"tessaline.delivery.archive.{attacker}",
                f"$JS.ACK.{stream}.archive.1.1.1.1.0", f"$JS.ACK.{own}.archive.1.1.1.1.0",
                "$JS.API.STREAM.NAMES", "$JS.API.STREAM.LIST", "$JS.API.INFO",
                f"_INBOX.sensor.line3:right.x", "_INBOX.operator.x", "$SYS.REQ.SERVER.PING",
                *(f"$JS.API.{verb}.{name}" for name in (stream, own)
                  for verb in ("STREAM.CREATE", "STREAM.UPDATE", "STREAM.DELETE",
                               "STREAM.MSG.GET", "STREAM.MSG.DELETE", "STREAM.SNAPSHOT",
                               "STREAM.RESTORE", "DIRECT.GET", "CONSUMER.CREATE")),
                f"$JS.API.STREAM.INFO.{stream}", f"$JS.API.STREAM.PURGE.{stream}",
                f"$JS.API.CONSUMER.LIST.{stream}",
                *(f"$JS.API.CONSUMER.{verb}.{name}.archive" for name in (stream, own)
                  for verb in ("DURABLE.CREATE", "CREATE", "DELETE", "MSG.NEXT"))):
            assert forbidden(client, subject, b"{}"), subject
        for subject in (f"tessaline.data.*.{other}", "tessaline.>", ">", f"_INBOX.sensor.*.>",
                        "_INBOX.>", "_INBOX.operator.>", f"tessaline.control.*.{other}",
                        "tessaline.control.>", f"tessaline.delivery.archive.{other}",
                        f"tessaline.presence.*", "$JS.>"):
            client.subscribe(subject)
            with pytest.raises(Refused, match="Permissions Violation"):
                client.flush()


def test_a_subscriber_cannot_write(guarded):
    guarded.add("line3.left")
    with guarded.client("archive", "_INBOX.subscriber.archive") as client:
        assert b"streams" in client.request("$JS.API.STREAM.NAMES")
        for subject in ("tessaline.data.strips.line3.left", "tessaline.control.set.line3.left",
                        "$JS.API.STREAM.DELETE.tessaline:line3:left",
                        "$JS.API.STREAM.PURGE.tessaline:line3:left",
                        "$JS.API.CONSUMER.DELETE.tessaline:line3:left.archive",
                        "$JS.API.CONSUMER.DURABLE.CREATE.tessaline:line3:left.other",
                        "$JS.ACK.tessaline:line3:left.other.1.1.1.1.0"):
            assert forbidden(client, subject), subject


def test_messages_that_are_led_astray_are_not_stored(fleet):
    """Who may make consumers could have a sensor's messages delivered as another's."""
    hub = fleet.hub()
    left = fleet.publish("line3.left", hub.url, "-t", "0.6")
    left.result()
    tool("fleet", "add", "line3.right", url=hub.url)
    with NatsClient(hub.port) as client:
        answer = client.request(
            "$JS.API.CONSUMER.DURABLE.CREATE.tessaline:line3:left.thief",
            json.dumps({"stream_name": "tessaline:line3:left", "config": {
                "durable_name": "thief", "deliver_policy": "all", "ack_policy": "explicit",
                "deliver_subject": "tessaline.delivery.archive.line3.right"}}).encode())
        assert b'"error"' not in answer
    said = json_of("subscribe", "line3.right", "-o", fleet.recording, "-t", "1.5", url=hub.url)
    assert (said["strips"], said["damaged"] > 0) == (0, True)


def test_a_key_is_secret_and_never_overwritten(fleet):
    path = fleet.folder / "left.nk"
    first = tool("fleet", "key", "-o", path)
    assert first.stdout.startswith("U") and len(first.stdout.strip()) == 56
    assert path.stat().st_mode & 0o777 == 0o600
    seed = path.read_text()
    assert seed.startswith("SU")
    assert seed.strip() not in first.stdout + first.stderr
    again = tool("fleet", "key", "-o", path)
    assert again.returncode == 5
    assert path.read_text() == seed


@pytest.mark.parametrize("words, text", [
    (("--name", "a..b", "--public-key", "{key}"), "no name of a sensor"),
    (("--name", "left", "--public-key", "{key}x"), "no user's public key"),
    (("--name", "left", "--public-key", "U } system_account: all"), "no user's public key"),
    (("--name", "a.b", "--role", "subscriber", "--public-key", "{key}"), "no subscriber's name"),
])
def test_rights_of_nonsense(fleet, words, text):
    key = tool("fleet", "key", "-o", fleet.folder / "key.nk").stdout.strip()
    done = tool("fleet", "rights", *(word.replace("{key}", key) for word in words))
    assert done.returncode == 2
    assert text in done.stderr
    assert done.stdout == ""


def test_a_file_without_a_key(fleet):
    hub = fleet.hub()
    for text in ("", "SUAAAA", "UAAA", "S" * 58, "SU" + "A" * 56):
        path = fleet.folder / "no.nk"
        path.write_text(text)
        done = tool("fleet", "status", "--nkey", path, url=hub.url)
        assert done.returncode == 6, (text, done.stderr)
        assert "no user's NKey" in done.stderr
