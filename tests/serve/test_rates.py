"""How often messages come."""

import asyncio
import json
import time

import pytest
import websockets
from streams import address, collect, connect


def test_without_a_rate_two_states_come_a_second(daemon):
    async def watch():
        count = 0
        async with connect(daemon, "state") as stream:
            end = time.monotonic() + 3
            while (left := end - time.monotonic()) > 0:
                try:
                    message = json.loads(await asyncio.wait_for(stream.recv(), left))
                except asyncio.TimeoutError:
                    break
                count += message["type"] == "state"
        return count
    assert 5 <= asyncio.run(watch()) <= 8


@pytest.mark.parametrize("wrong", ["0", "x", "1e9", "-5", "0.09", "121", "", "nan", "inf", "5x",
                                   "5%00", "0x10", "5,5"])
@pytest.mark.parametrize("name", ["profile", "image", "state"])
def test_a_wrong_rate_is_refused(daemon, name, wrong):
    async def watch():
        with pytest.raises(websockets.InvalidStatusCode) as refused:
            async with connect(daemon, name, wrong):
                pass
        return refused.value.status_code
    assert asyncio.run(watch()) == 422
    path = address(daemon, name, wrong).partition("/api")[2]
    assert ("20" if name == "state" else "120") in daemon.request("GET", f"/api{path}").json()["advice"]


def measured_rates(daemon, name, rates, seconds=2):
    """Messages a second that clients get side by side."""
    async def watch():
        return await asyncio.gather(*(collect(daemon, name, seconds, rate) for rate in rates))
    return [(len(messages) - 1) / (messages[-1].arrived - messages[0].arrived)
            for messages in asyncio.run(watch())]


def reaches(daemon, name, rates, share=0.95) -> list[float]:
    """The rates of the best of three tries, because this machine may be busy for a while."""
    for _ in range(3):
        got = measured_rates(daemon, name, rates)
        if all(rate >= share * wanted for rate, wanted in zip(got, rates)):
            break
    return got


def test_five_a_second_are_four_to_six(fast):
    rate, = measured_rates(fast, "profile", [5])
    assert 4 <= rate <= 6


@pytest.mark.parametrize("rates", [(10, 60), (7, 30)], ids=str)
def test_clients_with_two_rates_both_get_theirs(fast, rates):
    got = reaches(fast, "profile", rates)
    assert all(0.95 * wanted <= rate <= 1.15 * wanted for rate, wanted in zip(got, rates)), got


def test_a_state_comes_as_often_as_it_may_be_asked_for(daemon):
    rate, = reaches(daemon, "state", [20], 0.8)
    assert rate >= 16
