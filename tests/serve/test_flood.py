"""Many clients, slow ones, and processes that take every frame."""

import asyncio
import contextlib
import mmap
import os
import socket
import struct
import threading
import time

import pytest
import ring
from conftest import QUICK
from daemon import read_to_end, wait_until
from metrics_text import value
from streams import collect, stalled

DROPPED = "tessaline_recorder_frames_dropped_total"


def dropped_messages(daemon) -> int:
    return sum(client["dropped_frames"] for client in daemon.get("state")["clients"])


def test_a_flood_of_clients_costs_no_frame(daemons):
    """A ring of 64 MB has room for the frames of all this time, 3 MB a second."""
    daemon = daemons.start()
    stop = threading.Event()
    answered = []

    def ask_again_and_again():
        while not stop.is_set():
            for path in ("/", "/api/v1/state", "/api/v1/registers", "/api/v1/snapshot.png",
                         "/metrics", "/nothing"):
                answered.append(daemon.request("GET", path).status)

    async def watch():
        return await asyncio.gather(*(collect(daemon, "profile", 4, 5) for _ in range(10)))

    asking = threading.Thread(target=ask_again_and_again)
    with ring.opened(daemon, memory=64), contextlib.ExitStack() as stack:
        before = daemon.get("state")["counters"]
        for _ in range(40):
            stack.enter_context(stalled(daemon, "profile", 120))
        asking.start()
        try:
            healthy = asyncio.run(watch())
        finally:
            stop.set()
            asking.join()
        state = daemon.get("state")
        assert len([client for client in state["clients"] if client["rate"] == 120]) == 40
        assert dropped_messages(daemon) > 40
        after = state["counters"]
        assert (after["missing_ids"], after["malformed"], after["fpga_lost"]) == (0, 0, 0)
        assert after["strips"] > before["strips"] + 500
        assert value(daemon.metrics(), DROPPED) == 0
    assert min(len(messages) for messages in healthy) >= 4 * 5 * 0.8
    assert len(answered) > 10 and set(answered) == {200, 404}


def test_a_client_that_does_not_read_costs_the_others_nothing(daemon):
    with stalled(daemon, "profile", 120):
        messages = asyncio.run(collect(daemon, "profile", 2, 5))
        assert len(messages) >= 2 * 5 * 0.9
        ids = [message.frame_id for message in messages]
        assert ids == sorted(set(ids))
        wait_until(lambda: dropped_messages(daemon) > 0, what="a dropped message")
        client = max(daemon.get("state")["clients"], key=lambda one: one["dropped_frames"])
        assert client["dropped_bytes"] >= client["dropped_frames"] * 64
        first = client["dropped_frames"]
        wait_until(lambda: dropped_messages(daemon) > first, what="one more")


def test_a_client_that_reads_again_gets_new_profiles(daemon):
    """What it missed is not sent later, apart from what the kernel already holds."""
    with stalled(daemon, "profile", 100) as connection:
        wait_until(lambda: dropped_messages(daemon) > 60, seconds=10)
        behind = 0
        end = time.monotonic() + 1
        while time.monotonic() < end:
            behind += len(connection.recv(1 << 20))
    # A second of 25 profiles of 13 kB, and at most a megabyte that was on its way.
    assert behind < 25 * 14000 * 1.5 + 1_000_000


def test_many_connections_that_say_nothing_leave_room_in_the_end(daemons):
    """There may be 256 at a time; those that are too many are closed at once."""
    daemon = daemons.start(**QUICK)
    with contextlib.ExitStack() as stack:
        silent = [stack.enter_context(daemon.connect()) for _ in range(300)]
        closed = 0
        for connection in silent[270:]:
            connection.settimeout(5)
            closed += connection.recv(1) == b""
        assert closed == 30
    wait_until(lambda: answers(daemon), what="an answer")


def answers(daemon) -> bool:
    try:
        return daemon.request("GET", "/api/v1/state").status == 200
    except OSError:
        return False


def test_a_process_that_takes_all_frames_gets_shared_memory(daemon):
    with ring.opened(daemon, memory=64) as descriptor:
        assert os.fstat(descriptor).st_size >= 64 << 20
        assert value(daemon.metrics(), "tessaline_recorders") == 1
        wait_until(lambda: daemon.get("statistics")["recorders"]["count"] == 1)
    wait_until(lambda: value(daemon.metrics(), "tessaline_recorders") == 0)


def test_several_processes_may_take_all_frames(daemon):
    with ring.opened(daemon, memory=8), ring.opened(daemon, memory=8, what="images"), \
            ring.opened(daemon, memory=8, what="strips registers"):
        assert value(daemon.metrics(), "tessaline_recorders") == 3
    wait_until(lambda: value(daemon.metrics(), "tessaline_recorders") == 0)


def test_a_full_ring_costs_its_reader_frames_and_nobody_else(daemon):
    before = value(daemon.metrics(), DROPPED)
    with ring.opened(daemon, memory=1):
        wait_until(lambda: value(daemon.metrics(), DROPPED) > before, what="a full ring")
        assert daemon.get("state")["counters"]["missing_ids"] == 0
        dropped = value(daemon.metrics(), DROPPED)
    wait_until(lambda: value(daemon.metrics(), "tessaline_recorders") == 0)
    # What was lost stays counted when the one who lost it has gone.
    assert value(daemon.metrics(), DROPPED) >= dropped


@pytest.mark.parametrize("query", [{"memory": 0}, {"memory": "much"}, {"memory": 1 << 40},
                                   {"memory": -1}])
def test_a_ring_of_a_wrong_size_is_refused(daemon, query):
    connection, answer, descriptors = ring.ask(daemon, **query)
    with connection:
        assert answer.startswith(b"HTTP/1.1 422") and descriptors == []


def test_frames_are_not_given_over_the_network(daemon):
    answer = daemon.request("GET", "/api/v1/frames?memory=64", Connection="Upgrade",
                            Upgrade="tessaline-ring")
    assert answer.status == 404
    assert "Unix socket" in answer.json()["advice"]


def test_what_the_socket_answers_is_what_the_port_answers(daemon):
    with socket.socket(socket.AF_UNIX) as local:
        local.connect(str(daemon.socket))
        local.sendall(b"GET /api/v1/limits HTTP/1.0\r\n\r\n")
        received = read_to_end(local)
    assert received.partition(b"\r\n\r\n")[2] == daemon.request("GET", "/api/v1/limits").body


def test_a_reader_that_destroys_its_ring_harms_nobody_else(daemon):
    """The places of writer and reader stand in the ring's head, which the reader may change."""
    with ring.opened(daemon, memory=1) as descriptor, mmap.mmap(descriptor, 4096) as head:
        for reserved, released in ((1 << 30, (1 << 30) + (1 << 23)), (1 << 63, 0), (7, 3),
                                   (0, 1 << 40), ((1 << 64) - 64, 64)):
            head[64:72] = struct.pack("<Q", reserved)
            head[128:136] = struct.pack("<Q", released)
            before = daemon.get("state")["counters"]["strips"]
            wait_until(lambda: daemon.get("state")["counters"]["strips"] > before + 100)
        # Nor are the losses that are told the reader's to choose.
        head[192:200] = struct.pack("<Q", 1 << 60)
        assert value(daemon.metrics(), DROPPED) < 1 << 40
    wait_until(lambda: value(daemon.metrics(), "tessaline_recorders") == 0)
