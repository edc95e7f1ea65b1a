"""How the package behaves in a process that is not its own. Each program is a process."""

from __future__ import annotations

import os
import signal
import subprocess
import sys
import textwrap
import time

import pytest

HEAD = """
import os, signal, sys, threading, time
import tessaline

def laser():
    return sensor.board.line(907) or 0
"""


def start(source: str) -> subprocess.Popen[str]:
    return subprocess.Popen(
        [sys.executable, "-u", "-c", HEAD + textwrap.dedent(source)],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )


def run(source: str, timeout: float = 60) -> tuple[int, str, str]:
    program = start(source)
    out, err = program.communicate(timeout=timeout)
    return program.returncode, out, err


def interrupt_when_ready(source: str, number: int = signal.SIGINT) -> tuple[int, str, str, float]:
    program = start(source)
    assert program.stdout is not None
    assert program.stdout.readline() == "ready\n", program.communicate()[1]
    time.sleep(0.2)
    begin = time.monotonic()
    program.send_signal(number)
    out, err = program.communicate(timeout=60)
    return program.returncode, out, err, time.monotonic() - begin


ON_EXIT = """
import atexit
atexit.register(lambda: print("atexit ran, laser", sensor.board.line(907)))
sensor = tessaline.Sensor("K3610", virtual=True)
"""


@pytest.mark.parametrize(
    "work",
    [
        "for buf in sensor.strips():\n    print('ready') if buf[0].frame_id == 1 else None",
        "sensor._calls.set('SetTriMode', 2)\nprint('ready')\nlist(sensor.strips(timeout_s=50))",
        "import asyncio\nasync def main():\n    print('ready')\n"
        "    async for buf in sensor.strips(): pass\nasyncio.run(main())",
        "print('ready')\nfor event in sensor.events(): pass",
        "for buf in sensor.strips():\n    print('ready')\n    time.sleep(50)",
    ],
    ids=["loop", "waiting", "asyncio", "events", "slow turn"],
)
def test_ctrl_c_is_a_keyboard_interrupt(work: str) -> None:
    program = ON_EXIT + "try:\n" + textwrap.indent(work, "    ")
    program += "\nexcept KeyboardInterrupt:\n    print('interrupted, laser', laser())\n    raise\n"
    status, out, err, seconds = interrupt_when_ready(program)
    assert status == -signal.SIGINT, err
    assert "interrupted, laser 0" in out
    assert "atexit ran, laser 0" in out
    assert "KeyboardInterrupt" in err
    assert seconds < 10


def test_sigterm_switches_the_laser_off() -> None:
    status, out, err, _ = interrupt_when_ready(
        ON_EXIT
        + """
for buf in sensor.strips():
    if buf[0].frame_id == 1: print("ready")
""",
        signal.SIGTERM,
    )
    assert (status, err) == (128 + signal.SIGTERM, "")
    assert "atexit ran, laser 0" in out


def test_an_exception_names_itself_and_the_laser_is_off() -> None:
    status, out, err = run(
        """
        import atexit
        atexit.register(lambda: print("laser", sensor.board.line(907)))
        with tessaline.Sensor("K3610", virtual=True) as sensor:
            for buf in sensor.strips():
                assert laser() == 1
                raise RuntimeError("my own fault")
        """
    )
    assert status == 1
    assert err.endswith("RuntimeError: my own fault\n")
    assert out == "laser 0\n"


def test_a_program_that_just_ends_leaves_the_laser_off() -> None:
    status, out, err = run(
        """
        sensor = tessaline.Sensor("K3610", virtual=True)
        board = sensor.board
        stream = sensor.strips()
        next(stream)
        assert laser() == 1
        import atexit
        # Runs after the package's own.
        atexit._run_exitfuncs()
        print(board.line(907))
        """
    )
    assert (status, out, err) == (0, "0\n", "")


def test_standard_output_is_the_programs_own() -> None:
    status, out, err = run(
        """
        with tessaline.Sensor("K3610", virtual=True) as sensor:
            sensor.image()
            print("mine")
        """
    )
    assert (status, out, err) == (0, "mine\n", "")


def test_lines_of_the_library_go_to_logging() -> None:
    status, out, err = run(
        """
        import logging
        lines = []
        class Keep(logging.Handler):
            def emit(self, record): lines.append((record.name, record.levelname, record.getMessage()))
        logging.getLogger("tessaline").addHandler(Keep())
        logging.getLogger("tessaline").setLevel(logging.DEBUG)
        with tessaline.Sensor("K3610", virtual=True) as sensor:
            try: sensor._calls.set("SetOutWidth", 7, 1)
            except tessaline.RefusedError as error: print(error.call, "|", error.text)
        assert ("tessaline.library", "DEBUG", "SetOutWidth invalid parameter!") in lines, lines
        assert ("tessaline.library", "DEBUG", "273 init successful") in lines, lines
        """
    )
    assert (status, out) == (0, "SetOutWidth | SetOutWidth invalid parameter!\n"), err


@pytest.mark.parametrize(
    ("second", "words"),
    [
        ('tessaline.Sensor("K3610", virtual=True)', "open already"),
        ('sensor.close(); tessaline.Sensor("K3820", virtual=True)', "has started a K3610"),
        ('sensor.close(); tessaline.Sensor("K3610")', "has started a K3610"),
        ("sensor.close(); sensor.image()", "the sensor is closed"),
        ('tessaline.Sensor("K9999", virtual=True)', "K9999|open already"),
        ("import pickle; pickle.dumps(sensor)", "cannot be pickled"),
    ],
)
def test_what_cannot_be_is_one_clear_error(second: str, words: str) -> None:
    status, out, err = run(
        f"""
        import re
        sensor = tessaline.Sensor("K3610", virtual=True, sleep_factor=0)
        try:
            {second}
        except (tessaline.TessalineError, TypeError) as error:
            assert re.search({words!r}, str(error)), error
            print("one error")
        """
    )
    assert (status, out, err) == (0, "one error\n", "")


def test_without_hardware_the_way_on_is_said() -> None:
    status, out, err = run(
        """
        try: tessaline.Sensor("K3610")
        except tessaline.StartUpError as error: print(error)
        """
    )
    assert (status, err) == (0, "")
    assert "cannot open /dev/" in out
    assert "virtual=True" in out or "as root" in out


def test_an_unknown_model_is_refused() -> None:
    status, out, err = run(
        """
        try: tessaline.Sensor("K3999x", virtual=True)
        except tessaline.StartUpError as error: print("no")
        try: tessaline.Sensor(3610, virtual=True)
        except TypeError as error: print(error)
        with tessaline.Sensor("K3610", virtual=True, sleep_factor=0) as sensor: print("yes")
        """
    )
    assert (status, err) == (0, "")
    assert out == "no\nmodel must be a str such as 'K3610', not int\nyes\n"


@pytest.mark.parametrize(
    "callback",
    ["raise ValueError('bad handler')", "sys.exit(3)", "raise KeyboardInterrupt"],
)
def test_a_callback_that_raises_stops_the_sensor(callback: str) -> None:
    status, out, err = run(
        f"""
        import logging
        logging.disable()
        def handler(event):
            {callback}
        with tessaline.Sensor("K3610", virtual=True, sleep_factor=0) as sensor:
            sensor.on_external_trigger(handler)
            try:
                for n, buf in enumerate(sensor.strips()):
                    if n == 2: sensor.board.external_trigger(1)
                    assert n < 1000
            except tessaline.CallbackError as error:
                print(type(error.__cause__).__name__, laser(), sensor._calls.get("GetGlobalControl"))
        """
    )
    assert status == 0, err
    assert out.split()[1:] == ["0", "0"]
    assert out.split()[0] in ("ValueError", "SystemExit", "KeyboardInterrupt")


def test_events_come_in_order() -> None:
    status, out, err = run(
        """
        with tessaline.Sensor("K3610", virtual=True, sleep_factor=0) as sensor:
            events = sensor.events(timeout_s=5)
            seen = []
            def drive():
                for level in (1, 0, 1):
                    sensor.board.external_trigger(level)
                    time.sleep(0.1)
                sensor.board.da_arrived()
            threading.Thread(target=drive).start()
            for event in events:
                seen.append((event.kind, event.level))
                if len(seen) == 4: break
            print(seen)
        """
    )
    assert (status, err) == (0, "")
    assert out == "[('trigger', 1), ('trigger', 0), ('trigger', 1), ('da', None)]\n"


def test_a_forked_child_leaves_the_sensor_alone() -> None:
    status, out, err = run(
        """
        sensor = tessaline.Sensor("K3610", virtual=True)
        stream = sensor.strips()
        next(stream)
        if (child := os.fork()) == 0:
            try: sensor.image()
            except tessaline.DeviceGone as error: print("child:", error.what)
            sys.exit(0)
        assert os.waitpid(child, 0)[1] == 0
        assert laser() == 1
        print(sum(len(next(stream)) for _ in range(3)))
        sensor.close()
        """
    )
    assert (status, err) == (0, "")
    assert out == (
        "child: the sensor belongs to the process that opened it, not to this child of it\n30\n"
    )


def test_an_unplugged_board_is_an_error_and_no_hang() -> None:
    status, out, err = run(
        """
        import logging; logging.disable()
        sensor = tessaline.Sensor("K3610", virtual=True, sleep_factor=0)
        try:
            for n, buf in enumerate(sensor.strips(timeout_s=1)):
                if n == 2: sensor.board.unplug()
        except tessaline.TessalineError as error:
            print(type(error).__name__)
        try: sensor.image()
        except tessaline.DeviceGone as error: print(error)
        """,
        timeout=15,
    )
    assert status == 0, err
    assert out.startswith(("TimeoutError\n", "DeviceGone\n"))
    assert "has not returned" in out
    assert "end this process" in out


def test_the_laser_goes_off_when_the_registers_are_out_of_reach() -> None:
    status, out, err = run(
        """
        import logging; logging.disable()
        sensor = tessaline.Sensor("K3610", virtual=True, sleep_factor=0)
        stream = sensor.strips()
        next(stream)
        assert laser() == 1
        sensor.board.plant(tessaline.Fault("fpga", "open", "EACCES"))
        try: stream.close()
        except tessaline.DeviceGone as error: print("gone, laser", laser())
        """,
        timeout=15,
    )
    assert (status, out) == (0, "gone, laser 0\n"), err


def test_faulthandler_and_the_virtual_board_get_on() -> None:
    status, out, err = run(
        """
        import faulthandler
        sensor = tessaline.Sensor("K3610", virtual=True, sleep_factor=0)
        faulthandler.enable()
        print(sensor._calls.get("GetTriSpacing"))
        faulthandler.disable()
        print(sensor._calls.get("GetTriSpacing"))
        """
    )
    assert (status, out, err) == (0, "200000\n200000\n", "")


@pytest.mark.parametrize("model", ["K3710", "K3820", "K3920arm_rebuild", "K4010"])
def test_every_series_delivers(model: str) -> None:
    status, out, err = run(
        f"""
        with tessaline.Sensor({model!r}, virtual=True, sleep_factor=0) as sensor:
            sensor._calls.set("SetTriSpacing", 20000)
            ids = [strip.frame_id for buf in sensor.strips(30) for strip in buf]
            image = sensor.image()
            print(ids == list(range(1, 31)), image.ndim, image.dtype)
        """
    )
    assert (status, out, err) == (0, "True 2 uint8\n", "")


def test_the_interpreter_options_of_careful_people() -> None:
    environment = dict(os.environ, PYTHONWARNINGS="error")
    source = HEAD + textwrap.dedent(
        """
        with tessaline.Sensor("K3610", virtual=True, sleep_factor=0) as sensor:
            for buf in sensor.strips(20): buf[0].rows
        """
    )
    done = subprocess.run(
        [sys.executable, "-X", "dev", "-b", "-c", source],
        capture_output=True,
        text=True,
        env=environment,
        timeout=60,
        check=False,
    )
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_a_sensor_that_nobody_holds_is_closed() -> None:
    status, out, err = run(
        """
        import gc
        def use():
            sensor = tessaline.Sensor("K3610", virtual=True, sleep_factor=0)
            sensor.laser.on()
            return sensor.board
        board = use()
        gc.collect()
        print(board.line(907))
        with tessaline.Sensor("K3610", virtual=True, sleep_factor=0) as sensor: print("again")
        """
    )
    assert (status, out, err) == (0, "0\nagain\n", "")


def test_ctrl_c_while_closing_still_switches_the_laser_off() -> None:
    status, out, err = run(
        """
        import atexit
        from tessaline import _lifecycle
        sensor = tessaline.Sensor("K3610", virtual=True)
        atexit._clear()  # so that ours runs after the package's
        board = sensor.board
        atexit.register(lambda: print(board.line(907)))
        atexit.register(sensor._opened.close_forgotten)
        sensor.laser.on()
        stream = sensor.strips()
        next(stream)
        threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT)).start()
        try: sensor.close()
        except KeyboardInterrupt: print("interrupted")
        """
    )
    assert (status, err) == (0, "")
    assert out.endswith("0\n")


def test_a_sensor_in_a_cycle_is_closed_too() -> None:
    status, out, err = run(
        """
        import gc
        class App: pass
        app = App()
        app.sensor, app.me = tessaline.Sensor("K3610", virtual=True, sleep_factor=0), app
        app.sensor.laser.on()
        board = app.sensor.board
        del app
        gc.collect()
        print(board.line(907))
        """
    )
    assert (status, out, err) == (0, "0\n", "")


def test_a_daemon_thread_that_waits_does_not_abort_the_end() -> None:
    status, out, err = run(
        """
        sensor = tessaline.Sensor("K3610", virtual=True, sleep_factor=0)
        sensor._calls.set("SetTriMode", 2)
        def wait():
            try: list(sensor.strips(timeout_s=100))
            except tessaline.DeviceGone: pass
        threading.Thread(target=wait, daemon=True).start()
        time.sleep(0.3)
        """
    )
    assert (status, out) == (0, ""), err


def test_a_forked_child_cannot_open_what_its_parent_started() -> None:
    status, out, err = run(
        """
        sensor = tessaline.Sensor("K3610", virtual=True, sleep_factor=0)
        if (child := os.fork()) == 0:
            begin = time.monotonic()
            try: tessaline.Sensor("K3610", virtual=True)
            except tessaline.StartUpError as error: print("spawn" in str(error))
            os._exit(0 if time.monotonic() - begin < 1 else 1)
        assert os.waitpid(child, 0)[1] == 0
        """
    )
    assert (status, out, err) == (0, "True\n", "")


def test_a_failed_start_stays_failed() -> None:
    status, out, err = run(
        """
        for wrong in (float("nan"), "soon"):
            try: tessaline.Sensor("K3610", virtual=True, start_timeout_s=wrong)
            except ValueError: print("refused")
        with tessaline.Sensor("K3610", virtual=True, sleep_factor=0) as sensor:
            print(sensor.trigger.spacing_us)
        """
    )
    assert status == 0, err
    assert out.startswith("refused\nrefused\n4000")


def test_profiles_without_a_line_are_told_of() -> None:
    status, out, err = run(
        """
        with tessaline.Sensor("K4010", virtual=True, sleep_factor=0) as sensor:
            print(sensor.profiles(5).valid.any())
            sensor.configure(exposure_us=100)
            print(sensor.profiles(5).valid.any())
        """
    )
    assert (status, out) == (0, "False\nTrue\n"), err
    assert err.startswith("no laser line in 5 profiles")
    assert err.count("\n") == 1


def test_a_call_that_was_given_up_is_not_made_later() -> None:
    status, out, err = run(
        """
        sensor = tessaline.Sensor("K3610", virtual=True, sleep_factor=20)
        def take_long(): sensor.image_sensor.drive_mode = tessaline.DriveMode.HALF
        thread = threading.Thread(target=take_long)
        thread.start()
        time.sleep(0.3)
        threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT)).start()
        try: sensor.laser.on()
        except KeyboardInterrupt: print("interrupted")
        assert thread.is_alive()
        thread.join()
        sensor.board.set_sleep_factor(0)
        print(sensor.trigger.spacing_us, laser())
        """
    )
    assert (status, out, err) == (0, "interrupted\n4000 0\n", "")
