"""Who may read and who may write."""

import os
import socket
import stat

import pytest
from conftest import QUICK
from daemon import read_to_end

WRITES = [
    ("PATCH", "/api/v1/settings", {"power_percent": 1}),
    ("PUT", "/api/v1/laser", {"on": False}),
    ("PUT", "/api/v1/acquisition", {"on": False}),
    ("PUT", "/api/v1/mode", {"mode": "images"}),
    ("POST", "/api/v1/trigger", None),
    ("POST", "/api/v1/recordings", None),
    ("DELETE", "/api/v1/recordings/current", None),
]


@pytest.fixture(autouse=True)
def nothing_is_written(daemon):
    before = daemon.get("state")
    yield
    after = daemon.get("state")
    for member in ("settings", "laser", "acquisition", "mode", "recording"):
        assert after[member] == before[member], member


@pytest.mark.parametrize(("method", "path", "body"), WRITES)
def test_a_write_needs_the_token(daemon, method, path, body):
    answer = daemon.request(method, path, body)
    assert answer.status == 401
    assert answer.headers["WWW-Authenticate"].startswith("Bearer")
    assert "token" in answer.json()["error"]


@pytest.mark.parametrize("header", ["Forwarded", "X-Forwarded-For"])
def test_who_comes_through_a_proxy_is_not_this_machine(daemon, header):
    through_proxy = {header: "for=192.0.2.1"}
    assert daemon.request("GET", "/api/v1/state", **through_proxy).status == 401
    assert daemon.request("GET", "/metrics", **through_proxy).status == 401
    assert daemon.request("GET", "/api/v1/state", token=daemon.token, **through_proxy).status == 200


@pytest.mark.parametrize("wrong", [
    "Bearer", "Bearer ", "Basic {token}", "{token}", "Bearer: {token}", "Bearer  {token}",
])
def test_a_token_that_is_not_sent_as_one_is_none(daemon, wrong):
    answer = daemon.request("PUT", "/api/v1/laser", {"on": False},
                            Authorization=wrong.format(token=daemon.token))
    assert answer.status == 401


def test_a_token_in_the_address_is_none(daemon):
    answer = daemon.request("PUT", f"/api/v1/laser?token={daemon.token}", {"on": False})
    assert answer.status == 401


@pytest.mark.parametrize("change", [
    lambda token: token[:-1], lambda token: token + "0", lambda token: token.upper(),
    lambda token: token[::-1],
], ids=["shorter", "longer", "in capitals", "backwards"])
def test_nearly_the_token_is_refused(daemons, change):
    daemon = daemons.start(**QUICK)
    answer = daemon.request("PUT", "/api/v1/laser", {"on": False}, token=change(daemon.token))
    assert answer.status == 401
    assert "wrong" in answer.json()["error"]
    assert daemon.get("state")["laser"] is True


def test_after_ten_wrong_tokens_only_the_right_one_is_looked_at(daemons):
    daemon = daemons.start(**QUICK)
    body = {"on": False}

    def status(token):
        return daemon.request("PUT", "/api/v1/laser", body, token=token).status

    assert [status("wrong") for _ in range(11)] == [401] * 10 + [429]
    refused = daemon.request("PUT", "/api/v1/laser", body, token="wrong again")
    assert refused.status == 429
    assert status(daemon.token) == 200
    daemon.write("PUT", "laser", {"on": True})
    assert 0 < int(refused.headers["Retry-After"]) <= 60
    # Who reads here needs no token and goes on, and so does who may use the socket.
    assert daemon.get("state")["laser"] is True
    with socket.socket(socket.AF_UNIX) as local:
        local.connect(str(daemon.socket))
        local.sendall(b"PUT /api/v1/laser HTTP/1.0\r\nContent-Length: 12\r\n\r\n{\"on\":false}")
        assert read_to_end(local).startswith(b"HTTP/1.0 200")


def test_requests_without_a_token_are_no_guesses(daemons):
    daemon = daemons.start(**QUICK)
    for _ in range(15):
        assert daemon.request("PUT", "/api/v1/laser", {"on": True}).status == 401
    daemon.write("PUT", "laser", {"on": True})


@pytest.mark.parametrize("origin", [
    "http://evil.example", "https://127.0.0.1", "http://127.0.0.1", "http://127.0.0.1:1",
    "http://localhost:{port}", "null", "file://", "http://127.0.0.1:{port}.evil.example",
    "http://evil.example/127.0.0.1:{port}", "127.0.0.1:{port}",
])
@pytest.mark.parametrize("path", ["/api/v1/state", "/api/v1/laser", "/metrics",
                                  "/api/v1/stream/state"])
def test_a_page_from_elsewhere_is_refused(daemon, origin, path):
    method = "PUT" if path.endswith("laser") else "GET"
    answer = daemon.request(method, path, token=daemon.token,
                            Origin=origin.format(port=daemon.port))
    assert answer.status == 403
    assert "Access-Control-Allow-Origin" not in answer.headers


def test_our_own_page_is_let_in(daemon):
    assert daemon.request("GET", "/api/v1/state", Origin=daemon.url).status == 200


def test_a_page_from_elsewhere_opens_no_stream(daemon):
    received = daemon.exchange(
        b"GET /api/v1/stream/state HTTP/1.1\r\nHost: 127.0.0.1\r\nOrigin: http://evil.example\r\n"
        b"Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
        b"Sec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n\r\n")
    assert received.startswith(b"HTTP/1.1 403")


@pytest.mark.parametrize("name", [
    "evil.example", "evil.example:{port}", "127.0.0.1.evil.example", "localhost.evil.example",
    "sensor", "0x7f000001", "[evil.example", "127.0.0.1@evil.example", "",
])
def test_a_foreign_name_for_our_address_is_refused(daemon, name):
    """A page elsewhere may let its own name point to this machine."""
    received = daemon.exchange(
        f"GET /api/v1/state HTTP/1.1\r\nHost: {name.format(port=daemon.port)}\r\n\r\n".encode())
    assert received.startswith(b"HTTP/1.1 403")
    assert b"--host" in received


@pytest.mark.parametrize("name", ["127.0.0.1", "127.0.0.1:{port}", "localhost", "localhost:{port}",
                                  "[::1]:{port}", "192.0.2.7", "[2001:db8::7]"])
def test_an_address_is_a_good_name(daemon, name):
    answer = daemon.request("GET", "/api/v1/state", Host=name.format(port=daemon.port))
    assert answer.status == 200


def test_capitals_do_not_matter_in_a_name(daemon):
    assert daemon.request("GET", "/api/v1/state", Host="LocalHost").status == 200


def test_a_name_may_be_given(daemons):
    daemon = daemons.start("--host", "sensor.example", "--host", "sensor", **QUICK)
    for name, status in (("sensor.example:80", 200), ("sensor", 200), ("other.example", 403)):
        assert daemon.request("GET", "/api/v1/state", Host=name).status == status


def test_the_page_may_run_its_own_script_only(daemon):
    answer = daemon.request("GET", "/")
    assert answer.headers["Content-Type"] == "text/html; charset=utf-8"
    policy = dict(part.strip().split(" ", 1)
                  for part in answer.headers["Content-Security-Policy"].split(";"))
    assert policy["default-src"] == "'none'"
    assert policy["connect-src"] == "'self'"
    assert policy["frame-ancestors"] == "'none'"
    assert policy["base-uri"] == "'none'"
    assert policy["script-src"].startswith("'sha256-")
    assert "unsafe" not in policy["script-src"] and " " not in policy["script-src"]


def test_the_page_fetches_nothing_from_elsewhere(daemon):
    page = daemon.request("GET", "/").body
    for word in (b' src="http', b' href="http', b"url(http", b"@import"):
        assert word not in page


def test_the_token_is_for_its_owner_only(daemon):
    assert stat.S_IMODE(daemon.token_file.stat().st_mode) == 0o600
    assert len(daemon.token) >= 32


def test_every_start_makes_a_new_token(daemons, daemon):
    assert daemons.start(**QUICK).token != daemon.token


def test_nothing_says_the_token(daemons):
    daemon = daemons.start(**QUICK)
    daemon.write("PUT", "laser", {"on": True})
    daemon.request("PUT", "/api/v1/laser", {"on": True}, token=daemon.token + "x")
    for path in ("/", "/api/v1/state", "/api/v1/log", "/api/v1/openapi.json", "/metrics"):
        assert daemon.token.encode() not in daemon.request("GET", path).body, path
    assert daemon.end() == 0
    assert daemon.token not in daemon.output()


def test_without_json_nothing_says_the_token_either(daemons):
    daemon = daemons.launch(form=(), **QUICK)
    lines = daemon.read_until(b"other commands")
    token_file = daemon.folder / "serve.sock.token"
    token = token_file.read_text().strip()
    assert daemon.end() == 0
    said = lines.decode() + daemon.output()
    assert str(token_file) in said and "http://127.0.0.1:" in said
    assert token not in said
    assert not token_file.exists()


def test_on_a_terminal_the_address_has_the_token(daemons):
    ours, its = os.openpty()
    try:
        daemon = daemons.launch(form=(), stdout=its, **QUICK)
        said = b""
        while b"other commands" not in said:
            said += os.read(ours, 4096)
        token = (daemon.folder / "serve.sock.token").read_text().strip()
        assert daemon.end() == 0
    finally:
        os.close(ours)
        os.close(its)
    assert f"/#token={token}" in said.decode()
