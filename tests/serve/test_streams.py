"""Streams of profiles, images and states."""

import asyncio
import csv
import io
import json
import time

import pytest
import websockets
from daemon import wait_until
from streams import FAST, WHOLE, Message, collect, connect


@pytest.fixture
def images(daemon):
    daemon.write("PUT", "mode", {"mode": "images"})
    yield daemon
    daemon.write("PUT", "mode", {"mode": "strips"})


async def next_message(stream) -> Message:
    return Message(time.monotonic(), await asyncio.wait_for(stream.recv(), 10))


def test_a_profile_says_what_it_is(daemon):
    before = time.time()
    messages = asyncio.run(collect(daemon, "profile", 0.5))
    assert len(messages) > 5
    for message in messages:
        assert (message.magic, message.version, message.header_bytes) == (b"TSLP", 1, 64)
        assert message.region == WHOLE["region"]
        assert (message.second, message.step) == (1, 0)
        assert before - 1 < message.host_seconds < time.time() + 0.01
        assert 0 < message.first <= 1456
        x, z, peak = message.points()
        assert list(x) == sorted(x)
        # The sensor's field, and the tallest object on the belt.
        assert -36.5 < x[0] and x[-1] < 36.5 and min(z) > -1 and max(z) < 11
        assert min(peak) > 0


def test_no_profile_comes_twice_or_late(daemon):
    messages = asyncio.run(collect(daemon, "profile", 0.5))
    for member in ("frame_id", "time_stamp", "host_seconds"):
        values = [getattr(message, member) for message in messages]
        assert values == sorted(set(values)), member
    assert all(now.encoder_stamp >= old.encoder_stamp
               for old, now in zip(messages, messages[1:]))


def test_a_profile_is_the_same_in_a_table(daemon):
    """Until the table is of a frame that the stream has brought, too."""

    async def meet():
        loop = asyncio.get_running_loop()
        seen = {}
        async with connect(daemon, "profile", 20) as stream:
            for _ in range(100):
                message = await next_message(stream)
                seen[message.frame_id] = message
                answer = await loop.run_in_executor(
                    None, daemon.request, "GET", "/api/v1/snapshot.csv")
                rows = list(csv.DictReader(io.StringIO(answer.body.decode())))
                if rows and int(rows[0]["frame_id"]) in seen:
                    return seen[int(rows[0]["frame_id"])], rows
        raise AssertionError("stream and table never met")

    message, rows = asyncio.run(meet())
    x, z, peak = message.points()
    assert len(rows) == message.first
    assert {row["time_stamp"] for row in rows} == {str(message.time_stamp)}
    assert {row["encoder_stamp"] for row in rows} == {str(message.encoder_stamp)}
    assert [float(row["x_mm"]) for row in rows] == pytest.approx(list(x), abs=1e-3)
    assert [float(row["z_mm"]) for row in rows] == pytest.approx(list(z), abs=1e-3)
    assert [int(row["peak"]) for row in rows] == list(peak)


def test_a_profile_without_light_has_no_points(daemon):
    daemon.write("PUT", "laser", {"on": False})
    try:
        time.sleep(0.1)
        message = asyncio.run(collect(daemon, "profile", 0))[0]
        assert message.first == 0 and message.payload == b""
    finally:
        daemon.write("PUT", "laser", {"on": True})


def test_every_profile_is_read_with_the_region_that_it_was_taken_with(fast):
    """Columns that were taken at one place must not be shown at another."""
    left = {"x": 0, "y": 520, "width": 700, "height": 320}
    right = {"x": 756, "y": 520, "width": 700, "height": 320}

    fast.patch(region=left)

    async def watch():
        loop = asyncio.get_running_loop()
        task = asyncio.create_task(collect(fast, "profile", 2, 120))
        for turn in range(6):
            await asyncio.sleep(0.3)
            await loop.run_in_executor(
                None, lambda: fast.patch(region=(left, right)[turn % 2], spacing=1500))
        return await task

    messages = asyncio.run(watch())
    assert {message.region["x"] for message in messages} == {0, 756}
    for message in messages:
        x = message.points()[0]
        first = (message.region["x"] - 728) * 0.05
        last = first + (message.region["width"] - 1) * 0.05
        assert message.first == message.region["width"]
        assert (x[0], x[-1]) == pytest.approx((first, last), abs=0.01)


def test_the_generation_grows_with_every_change(daemon):
    async def watch():
        async with connect(daemon, "profile", 30) as stream:
            before = (await next_message(stream)).generation
            await asyncio.get_running_loop().run_in_executor(
                None, lambda: daemon.patch(power_percent=49))
            for _ in range(60):
                if (await next_message(stream)).generation > before:
                    return True
        return False

    assert asyncio.run(watch())


def test_an_image_says_what_it_is(images):
    async def watch():
        async with connect(images, "image", 30) as stream:
            return [await next_message(stream) for _ in range(3)]

    for message in asyncio.run(watch()):
        assert (message.magic, message.version, message.header_bytes) == (b"TSLI", 1, 64)
        assert message.region == WHOLE["region"]
        assert (message.first, message.second, message.step) == (728, 544, 2)
        assert len(message.payload) == 728 * 544
        # The laser's line on a dark belt.
        assert max(message.payload) > 100
        assert sum(message.payload) / len(message.payload) < 60


def test_a_small_image_has_all_its_pixels(images):
    images.patch(region={"x": 64, "y": 640, "width": 512, "height": 400})
    try:
        async def watch():
            async with connect(images, "image") as stream:
                while (message := await next_message(stream)).region["width"] != 512:
                    pass
                return message

        message = asyncio.run(asyncio.wait_for(watch(), 10))
        assert (message.first, message.second, message.step) == (512, 400, 1)
        assert len(message.payload) == 512 * 400
    finally:
        images.patch(**WHOLE)


def test_a_snapshot_of_an_image_is_a_picture(images):
    def newest():
        answer = images.request("GET", "/api/v1/snapshot.png")
        return answer.body.startswith(b"\x89PNG\r\n\x1a\n") and answer.body
    picture = wait_until(newest)
    # Its size, in the first chunk; a drawn profile is 1024 wide.
    wait_until(lambda: int.from_bytes(newest()[16:20], "big") == 1456)
    assert picture
    assert images.request("GET", "/api/v1/snapshot.csv").status == 404


def test_no_profiles_come_while_the_mode_is_images(images):
    async def watch():
        async with connect(images, "profile", 30) as stream:
            with pytest.raises(asyncio.TimeoutError):
                await asyncio.wait_for(stream.recv(), 1)
    asyncio.run(watch())


def test_the_state_comes_with_the_log(daemon):
    async def watch():
        async with connect(daemon, "state", 20) as stream:
            return [json.loads(await asyncio.wait_for(stream.recv(), 5)) for _ in range(6)]

    messages = asyncio.run(watch())
    assert [message["type"] for message in messages[:2]] == ["state", "log"]
    lines = messages[1]["lines"]
    assert 0 < len(lines) <= 100
    assert set(lines[0]) >= {"time", "level", "file", "line", "text"}
    states = [message for message in messages if message["type"] == "state"]
    assert set(states[0]) >= set(daemon.get("state"))
    uptimes = [state["uptime"] for state in states]
    assert uptimes == sorted(set(uptimes))
    assert states[-1]["clients"][0]["stream"] == "state"


def test_new_lines_of_the_log_come_once(daemon):
    """A new region has the library write some."""

    async def watch():
        lines, quiet = [], 0
        async with connect(daemon, "state", 20) as stream:
            while quiet < 10:
                message = json.loads(await asyncio.wait_for(stream.recv(), 5))
                quiet += 1
                if message["type"] == "log":
                    lines.append(message["lines"])
                    quiet = 0
                if len(lines) == 1 and not quiet:
                    await asyncio.get_running_loop().run_in_executor(
                        None, lambda: daemon.patch(**FAST))
        return lines

    try:
        lines = asyncio.run(watch())
    finally:
        daemon.patch(**WHOLE)
    together = sum(lines, [])
    assert len(lines) >= 2
    log = daemon.get("log")["lines"]
    begin = log.index(together[0])
    assert log[begin:begin + len(together)] == together


def test_a_client_that_sends_something_is_sent_away(daemon):
    async def watch(message):
        async with connect(daemon, "profile", 120) as stream:
            await stream.send(message)
            with pytest.raises(websockets.ConnectionClosed):
                for _ in range(1000):
                    await asyncio.wait_for(stream.recv(), 5)
            return stream.close_code

    for message in ("hello", b"\0" * 100, ""):
        assert asyncio.run(watch(message)) == 1008


def test_a_client_that_sends_much_is_sent_away(daemon):
    async def watch():
        async with connect(daemon, "profile", 30) as stream:
            with pytest.raises(websockets.ConnectionClosed):
                await stream.send(b"\0" * 5_000_000)
                for _ in range(1000):
                    await asyncio.wait_for(stream.recv(), 5)
            return stream.close_code
    assert asyncio.run(watch()) in (1006, 1008, 1009)
    assert daemon.get("state")["ready"]


def test_a_ping_is_answered(daemon):
    async def watch():
        async with connect(daemon, "state") as stream:
            await asyncio.wait_for(await stream.ping(), 5)
    asyncio.run(watch())


def test_a_client_that_leaves_is_forgotten(daemon):
    asyncio.run(collect(daemon, "profile", 0))
    wait_until(lambda: daemon.get("state")["clients"] == [])


def test_the_state_names_every_client(daemon):
    async def watch():
        async with connect(daemon, "profile", 12.5) as profile, connect(daemon, "image"):
            await next_message(profile)
            state = await asyncio.get_running_loop().run_in_executor(None, daemon.get, "state")
            return state["clients"]

    profile, image = asyncio.run(watch())
    assert (profile["stream"], profile["rate"]) == ("profile", 12.5)
    assert (image["stream"], image["rate"]) == ("image", 30)
    assert profile["peer"] == image["peer"] == "127.0.0.1"
    assert profile["id"] != image["id"]
    assert profile["sent"] >= 1 and profile["sent_bytes"] >= 64
    assert image["sent"] == image["dropped_frames"] == 0
