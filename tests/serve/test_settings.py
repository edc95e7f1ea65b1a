"""State, limits and settings."""

import pytest
from conftest import QUICK
from daemon import wait_until


@pytest.fixture(autouse=True)
def settings_are_put_back(daemon):
    before = daemon.get("settings")
    yield
    daemon.patch(**before)


def refused(daemon, body):
    """What the daemon says to settings that it must not take. They have changed nothing."""
    before = daemon.get("settings")
    answer = daemon.request("PATCH", "/api/v1/settings", body, token=daemon.token)
    assert answer.status == 422, answer
    assert daemon.get("settings") == before
    return answer.json()


def test_the_state_says_what_runs(daemon):
    state = daemon.get("state")
    assert (state["model"], state["sensor"], state["virtual"]) == ("K3610", "IMX273", True)
    assert (state["mode"], state["acquisition"], state["laser"]) == ("strips", True, True)
    assert (state["ready"], state["failure"]) == (True, None)
    assert state["region"] == {"x": 0, "y": 0, "width": 1456, "height": 1088}
    assert state["calibration"]["unit"] == "mm"
    assert state["recording"] is None and state["recordings_possible"] is False
    assert state["clients"] == []
    assert 10 < state["temperatures"]["processor"] < 100


def test_the_state_counts_what_comes(daemon):
    before = daemon.get("state")
    wait_until(lambda: daemon.get("state")["counters"]["strips"] > before["counters"]["strips"])
    after = wait_until(lambda: (now := daemon.get("state"))["rates"]["profiles"] > 0 and now)
    assert after["counters"]["bytes"] > before["counters"]["bytes"]
    assert after["uptime"] > before["uptime"]
    assert after["quality"]["points"] == 1456
    losses = ("missing_ids", "malformed", "fpga_lost")
    assert [after["counters"][loss] for loss in losses] == [0, 0, 0]


def test_the_profiles_come_at_the_spacing_that_was_set(steady_daemon):
    # With all rows the sensor takes 4 ms for a frame.
    steady_daemon.patch(spacing=2000, region={"x": 0, "y": 700, "width": 1456, "height": 200})
    wait_until(lambda: abs(steady_daemon.get("state")["rates"]["profiles"] - 500) < 50, seconds=8,
               what="500 profiles a second")


def test_limits_name_every_setting(daemon):
    limits = daemon.get("limits")
    assert limits["model"] == "K3610" and limits["sensor"] == "IMX273"
    assert limits["region"]["sensor_width"] == 1456 and limits["region"]["sensor_height"] == 1088
    assert limits["exposure_us"] == {"low": 1, "high": 10000000, "unit": "us", "most": 5}
    for setting in ("gain", "power_percent", "spacing", "delay_us", "input_filter_us"):
        assert limits[setting]["low"] < limits[setting]["high"], setting
    assert limits["trigger"]["words"] == ["timer", "encoder", "external", "timer-start"]
    assert limits["door"]["words"] == ["off", "on"]
    assert "cyan" in limits["led"]["words"]


def test_the_units_of_limits_can_stand_behind_a_number(daemon):
    units = {name: limit["unit"] for name, limit in daemon.get("limits").items()
             if isinstance(limit, dict) and "unit" in limit}
    assert (units["exposure_us"], units["power_percent"]) == ("us", "%")
    assert all(unit == unit.strip() for unit in units.values())


def test_settings_can_be_sent_back_as_they_were_read(daemon):
    before = daemon.get("settings")
    assert daemon.patch(**before) == before
    assert daemon.get("settings") == before


def test_a_setting_that_was_made_is_read_back(daemon):
    wanted = {
        "region": {"x": 128, "y": 256, "width": 1024, "height": 512},
        "exposure_us": [150, 600], "gain": 7, "power_percent": 75, "spacing": 5000,
        "delay_us": 12, "input_filter_us": 3, "door": "off", "led": "cyan", "trigger": "timer",
    }
    answer = daemon.patch(**wanted)
    assert {name: answer[name] for name in wanted} == wanted
    state = daemon.get("state")
    assert state["region"] == wanted["region"]
    assert {name: state["settings"][name] for name in wanted} == wanted


def test_a_setting_gets_to_the_device(daemon):
    daemon.patch(spacing=3000)
    assert daemon.get("registers/TRI_SPACING")["value"] in (150000, "0x000249f0")


def test_an_exposure_may_be_a_number_or_a_list(daemon):
    daemon.patch(exposure_us=200)
    assert daemon.get("settings")["exposure_us"] in (200, [200])
    daemon.patch(exposure_us=[300])
    assert daemon.get("settings")["exposure_us"] in (300, [300])


def test_null_leaves_a_setting_alone(daemon):
    daemon.patch(power_percent=40)
    assert daemon.patch(power_percent=None, spacing=6000)["power_percent"] == 40


def test_nothing_to_change_changes_nothing(daemon):
    before = daemon.get("settings")
    assert daemon.patch() == before


def test_a_saved_recipe_puts_back_what_was_changed_since(daemons):
    daemon = daemons.start(**QUICK)
    saved = daemon.get("settings")
    daemon.patch(door="on", delay_us=5000)
    after = daemon.patch(**saved)
    assert (after.get("door", "off"), after.get("delay_us", 0)) == ("off", 0)


def test_one_wrong_member_changes_nothing(daemon):
    said = refused(daemon, {"power_percent": 10, "exposure_us": 99999999})
    assert "99999999" in said["error"] and "10000000" in said["error"] + said["advice"]
    assert said["limits"]["exposure_us"]["high"] == 10000000


@pytest.mark.parametrize("wrong", [
    {"spacing": 0}, {"spacing": -1}, {"spacing": 1e300}, {"spacing": "fast"}, {"spacing": 1.5},
    {"power_percent": 101}, {"power_percent": True}, {"gain": 49}, {"exposure_us": []},
    {"exposure_us": [1, 2, 3, 4, 5, 6]}, {"exposure_us": {"one": 1}}, {"led": "infrared"},
    {"trigger": 1}, {"region": {"x": 0, "y": 0, "width": 1457, "height": 1088}},
    {"region": {"x": 1455, "y": 0, "width": 100, "height": 100}}, {"region": [0, 0, 10, 10]},
    {"region": {"x": 0, "y": 0, "width": 0, "height": 0}}, {"region": {"x": 1}},
    {"model": "K3920"}, {"recipe": 2}, {"exposures": 5}, {"": 1},
], ids=str)
def test_a_wrong_setting_is_refused_with_words(daemon, wrong):
    said = refused(daemon, {"power_percent": 11} | wrong)
    assert said["error"] and said["status"] == 2
    assert set(said["limits"]) >= {"exposure_us", "region"}


@pytest.mark.parametrize("body", [
    "", "{", "nonsense", "[1]", "5", "null", '"text"', '{"spacing": 1000', "{'spacing': 1000}",
    '{"spacing": 1000}{}', '{"spacing": NaN}', b"\x00", b'{"spacing"\x00: 1000}',
    b'{"led": "\xff\xfe"}', "[" * 60000, '{"region":' * 5000 + "1" + "}" * 5000,
], ids=lambda body: repr(body[:20]))
def test_a_body_that_is_no_recipe_is_refused(daemon, body):
    refused(daemon, body)




def starts_calls(daemons, call: str) -> int:
    """How often a start makes a call."""
    daemon = daemons.launch(TESSALINE_BOARD_TRANSCRIPT="transcript.txt", **QUICK)
    daemon.wait_for_start()
    daemon.end()
    lines = (daemon.folder / "transcript.txt").read_text().splitlines()
    return sum(line.startswith(call) for line in lines)


def test_what_the_device_refuses_leaves_all_settings_as_they_were(daemons):
    """The power is set over I2C, the exposure in a register."""
    before = starts_calls(daemons, "i2c-1 I2C_RDWR")
    daemon = daemons.start(
        TESSALINE_BOARD_FAULTS=f"call i2c-1 I2C_RDWR EIO {before} 1", **QUICK)
    settings = daemon.get("settings")
    exposure = daemon.get("registers/EXP_TIME_1")["value"]
    answer = daemon.request("PATCH", "/api/v1/settings",
                            {"exposure_us": 640, "power_percent": 20}, token=daemon.token)
    assert answer.status == 409, answer
    assert daemon.get("settings") == settings
    assert daemon.get("registers/EXP_TIME_1")["value"] == exposure
    assert daemon.patch(exposure_us=640, power_percent=20)["power_percent"] == 20
