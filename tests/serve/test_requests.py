"""Requests of every kind, most of them wrong."""

import json
import re
import socket

import pytest
from daemon import read_to_end


@pytest.fixture(autouse=True)
def the_daemon_goes_on(daemon):
    yield
    assert daemon.get("state")["ready"]


def statuses(received: bytes) -> list[int]:
    return [int(status) for status in re.findall(rb"HTTP/1\.[01] (\d{3}) ", received)]


PATHS = ["/", "/api/v1/openapi.json", "/api/v1/state", "/api/v1/limits", "/api/v1/settings",
         "/api/v1/statistics", "/api/v1/registers", "/api/v1/registers/TRI_SPACING",
         "/api/v1/recordings", "/api/v1/log", "/metrics"]


@pytest.mark.parametrize("path", PATHS)
def test_a_head_has_the_header_of_a_get_and_no_body(daemon, path):
    get = daemon.request("GET", path)
    head = daemon.request("HEAD", path)
    assert (get.status, head.status) == (200, 200)
    assert get.body and not head.body
    assert head.headers["Content-Type"] == get.headers["Content-Type"]
    assert int(head.headers["Content-Length"]) > 0


@pytest.mark.parametrize("path", PATHS)
def test_no_answer_is_kept_or_guessed_at_by_a_browser(daemon, path):
    headers = daemon.request("GET", path).headers
    assert headers["Cache-Control"] == "no-store"
    assert headers["X-Content-Type-Options"] == "nosniff"
    assert headers["Referrer-Policy"] == "no-referrer"


@pytest.mark.parametrize("path", [
    "/nothing", "/api", "/api/v1", "/api/v1/", "/api/v2/state", "/api/v1/state/", "/index.html",
    "/../../etc/passwd", "/api/v1/../../../../etc/passwd", "/%2e%2e/%2e%2e/etc/passwd",
    "/..%2f..%2fetc%2fpasswd", "//etc/passwd", "//", "/./", "/.", "/api/v1/state%00",
    "/api/v1/stream/", "/api/v1/stream/video", "/api/v1/frames", "/%ff%fe",
    "/api/v1/recordings/../recordings", "/%c0%ae%c0%ae/etc/passwd",
])
def test_an_unknown_path_is_not_found(daemon, path):
    answer = daemon.request("GET", path)
    assert answer.status == 404, answer
    said = answer.json()
    assert said["error"]
    assert b"root:" not in answer.body


@pytest.mark.parametrize("path", ["/%", "/%4", "/%zz", "/api/v1/state?%", "/?a=%g1", "nothing",
                                  "*", "?"])
def test_a_malformed_address_is_refused(daemon, path):
    received = daemon.exchange(f"GET {path} HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n".encode())
    assert statuses(received) == [400]


def test_an_unknown_register_is_refused(daemon):
    assert daemon.request("GET", "/api/v1/registers/NO_SUCH_REGISTER").status in (404, 422)


@pytest.mark.parametrize(("method", "path"), [
    ("POST", "/"), ("DELETE", "/api/v1/state"), ("PUT", "/api/v1/settings"),
    ("GET", "/api/v1/laser"), ("POST", "/api/v1/laser"), ("GET", "/api/v1/trigger"),
    ("PATCH", "/metrics"), ("OPTIONS", "/api/v1/state"), ("TRACE", "/api/v1/state"),
    ("HEAD", "/api/v1/laser"),
])
def test_a_wrong_method_is_refused(daemon, method, path):
    assert daemon.request(method, path).status == 405


def test_the_refusal_of_a_method_lists_those_there_are(daemon):
    assert "PUT" in (daemon.request("GET", "/api/v1/laser").headers["Allow"] or "")


def test_a_stream_without_an_upgrade_is_refused(daemon):
    assert daemon.request("GET", "/api/v1/stream/state").status == 426


def test_the_refusal_of_a_bare_stream_says_what_to_upgrade_to(daemon):
    answer = daemon.request("GET", "/api/v1/stream/state")
    assert answer.headers["Upgrade"] == "websocket"


def test_a_body_of_64_kilobytes_is_read(daemon):
    body = json.dumps({"on": True}).ljust(64 << 10)
    assert daemon.request("PUT", "/api/v1/laser", body, token=daemon.token).status == 200


def test_a_larger_body_is_refused(daemon):
    body = json.dumps({"on": True}).ljust((64 << 10) + 1)
    answer = daemon.request("PUT", "/api/v1/laser", body, token=daemon.token)
    assert answer.status == 413
    assert "64 kB" in answer.json()["advice"]


def test_a_client_that_sends_megabytes_sees_the_refusal(daemon):
    body = b" " * 8000000
    assert daemon.request("PATCH", "/api/v1/settings", body, token=daemon.token).status == 413


def test_a_body_of_many_megabytes_is_refused_with_words(daemon):
    with daemon.connect() as connection:
        connection.sendall(b"PATCH /api/v1/settings HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                           b"Content-Length: 8000000\r\n\r\n")
        try:
            connection.sendall(b" " * 8000000)
        except (BrokenPipeError, ConnectionResetError):
            pass  # it need not read all of that
        assert statuses(read_to_end(connection)) == [413]


def test_a_large_body_in_pieces_is_refused(daemon):
    pieces = b"".join(b"3e8\r\n" + b" " * 1000 + b"\r\n" for _ in range(70))
    received = daemon.exchange(b"PATCH /api/v1/settings HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                               b"Transfer-Encoding: chunked\r\n\r\n" + pieces + b"0\r\n\r\n")
    assert statuses(received) == [413]


def test_a_body_in_pieces_is_read(daemon):
    received = daemon.exchange(
        f"PUT /api/v1/laser HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer {daemon.token}\r\n"
        "Transfer-Encoding: chunked\r\n\r\n"
        '6\r\n{"on":\r\n6\r\n true}\r\n0\r\n\r\n'.encode())
    assert statuses(received) == [200]


def test_a_request_with_two_lengths_is_refused(daemon):
    received = daemon.exchange(b"PUT /api/v1/laser HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                               b"Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n"
                               b"0\r\n\r\nGET /metrics HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
    assert statuses(received)[:1] in ([], [400])
    assert b"tessaline_up" not in received


def test_a_large_header_is_refused(daemon):
    answer = daemon.request("GET", "/api/v1/state", X_Filler="x" * (8 << 10))
    assert answer.status == 431
    assert "8 kB" in answer.json()["advice"]


def test_many_short_headers_are_refused(daemon):
    lines = b"".join(b"a%d: b\r\n" % i for i in range(2000))
    received = daemon.exchange(b"GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n" + lines + b"\r\n")
    assert statuses(received) == [431]


def test_a_program_of_the_last_century_gets_its_answer(daemon):
    received = daemon.exchange(b"GET /api/v1/limits HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n")
    assert received.startswith(b"HTTP/1.0 200")
    assert json.loads(received.partition(b"\r\n\r\n")[2])["model"] == "K3610"


def test_a_connection_of_the_last_century_ends_with_its_answer(daemon):
    with daemon.connect() as connection:
        connection.sendall(b"GET /api/v1/limits HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n")
        assert statuses(read_to_end(connection)) == [200]


def test_requests_sent_together_are_answered_in_order(daemon):
    paths = ["/api/v1/limits", "/nothing", "/metrics", "/api/v1/registers/TRI_SPACING",
             "/api/v1/state"]
    received = daemon.exchange("".join(
        f"GET {path} HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n" for path in paths).encode())
    assert statuses(received) == [200, 404, 200, 200, 200]
    places = [received.index(mark) for mark in
              (b'"exposure_us"', b"there is no", b"tessaline_up", b"TRI_SPACING", b'"uptime"')]
    assert places == sorted(places)


def test_a_connection_takes_one_request_after_the_other(daemon):
    with daemon.connect() as connection:
        for _ in range(50):
            connection.sendall(b"GET /api/v1/recordings HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
            assert connection.recv(65536).startswith(b"HTTP/1.1 200")


@pytest.mark.parametrize("garbage", [
    b"\x00" * 100, b"\xff" * 5000, b"\r\n\r\n\r\n\r\nnonsense\r\n\r\n", b"GET\r\n\r\n",
    b"GET /\x00 HTTP/1.1\r\n\r\n", b"GET / HTTP/9.9\r\n\r\n", b"GET / HTTP/1.1\r\nHost\r\n\r\n",
    b"GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: -1\r\n\r\n",
    b"GET / HTTP/1.1\r\nA: \x00\r\n\r\n", b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03",
    b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n",
], ids=lambda garbage: repr(garbage[:24]))
def test_bytes_that_are_no_request_are_refused(daemon, garbage):
    received = daemon.exchange(garbage)
    assert statuses(received) in ([400], [])


def test_a_request_that_breaks_off_is_forgotten(daemon):
    for piece in (b"", b"G", b"GET / HTTP/1.1\r\nHos",
                  b"PATCH /api/v1/settings HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                  b"Content-Length: 9\r\n\r\n{"):
        assert 200 not in statuses(daemon.exchange(piece))


def test_a_client_that_vanishes_during_its_request_hinders_nobody(daemon):
    for _ in range(50):
        connection = daemon.connect()
        # A reset, not an orderly end.
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")
        connection.sendall(b"GET /api/v1/registers HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
        connection.close()


def test_what_is_described_is_there(daemon):
    described = daemon.get("openapi.json")
    assert described["openapi"].startswith("3.")
    for path, methods in described["paths"].items():
        if "get" not in methods or "{" in path:
            continue
        assert daemon.request("GET", path).status in (200, 404, 426), path


def test_what_is_there_is_described(daemon):
    described = daemon.get("openapi.json").get("paths", {})
    missing = [path for path in PATHS if path != "/" and path not in described
               and not path.startswith("/api/v1/registers/")]
    assert missing == []


def test_more_than_a_hundred_writes_a_second_are_too_many(daemon):
    request = (f"POST /api/v1/trigger HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 0\r\n"
               f"Authorization: Bearer {daemon.token}\r\n\r\n").encode()
    received = daemon.exchange(request * 300)
    got = statuses(received)
    assert len(got) == 300 and set(got) == {200, 429}
    assert b"Retry-After: 1" in received
