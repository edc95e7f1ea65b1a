"""Clients that waste time. All of them begin at once, so that the tests wait for one of them."""

import time

import pytest
from daemon import read_to_end
from streams import stalled

pytestmark = pytest.mark.slow


@pytest.fixture(scope="module")
def began(steady_daemon):
    """Connections by what they do, and the time at which they all began."""
    daemon = steady_daemon
    connections = {
        "stalled": stalled(daemon, "profile", 60),
        "silent": daemon.connect(),
        "slow header": daemon.connect(),
        "slow body": daemon.connect(),
        "answered": daemon.connect(),
    }
    connections["slow header"].sendall(b"GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nX: ")
    connections["slow body"].sendall(b"PATCH /api/v1/settings HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                                     b"Content-Length: 1000\r\n\r\n{")
    connections["answered"].sendall(b"GET /api/v1/limits HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
    assert connections["answered"].recv(65536).startswith(b"HTTP/1.1 200")
    yield connections, time.monotonic()
    for connection in connections.values():
        connection.close()


@pytest.mark.parametrize("name", ["silent", "slow body", "answered"])
def test_a_connection_without_requests_is_closed_after_ten_seconds(began, name):
    connections, begin = began
    connections[name].settimeout(15)
    read_to_end(connections[name])
    assert 8 < time.monotonic() - begin < 15


def test_a_header_that_comes_byte_by_byte_is_not_waited_for(steady_daemon):
    """Each byte is in time, the whole is not."""
    begin = time.monotonic()
    with steady_daemon.connect() as connection:
        connection.settimeout(0.5)
        while time.monotonic() < begin + 15:
            try:
                connection.sendall(b"x")
                if connection.recv(100) == b"":
                    break
            except TimeoutError:
                continue  # it still listens
            except ConnectionError:
                break
    assert 8 < time.monotonic() - begin < 14


def test_a_header_that_breaks_off_is_closed(began):
    connections, begin = began
    connections["slow header"].settimeout(15)
    assert b"200" not in read_to_end(connections["slow header"])
    assert time.monotonic() - begin < 30


def test_a_stream_that_is_not_read_is_closed_within_a_minute(steady_daemon, began):
    _, begin = began

    def clients():
        state = steady_daemon.get("state")
        return [client for client in state["clients"] if client["rate"] == 60]

    last = clients()[0]
    while (now := clients()):
        last = now[0]
        assert time.monotonic() - begin < 60
        time.sleep(0.2)
    assert last["dropped_frames"] > 100
    assert steady_daemon.get("state")["counters"]["missing_ids"] == 0
