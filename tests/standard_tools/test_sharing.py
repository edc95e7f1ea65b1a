"""Several programs have one board: what one does, the others see; whoever is killed lets go."""

from __future__ import annotations

import random
import re
import subprocess
import time

import pytest
from sharing import COMMAND, RUNNER, SharedBoard, kill, wait_until

SERIES = ["K3610", "K3620", "K3710", "K3720", "K3810", "K3820", "K3910", "K3920", "K4010", "K4020"]
LASER_LINE = 907  # of a K3610
EEPROM = """
bus = os.open("/dev/i2c-0", os.O_RDWR)
fcntl.ioctl(bus, 0x703, 0x50)
"""
STREAM = ["v4l2-ctl", "-d", "/dev/video1", "--stream-mmap", "--stream-count=3"]


@pytest.fixture
def board():
    shared = SharedBoard()
    yield shared
    shared.end()


def write_eeprom(board: SharedBoard, address: int, data: bytes) -> None:
    board.python(EEPROM + "os.write(bus, bytes.fromhex(sys.argv[1])); time.sleep(0.05)",
                 bytes([address]).hex() + data.hex())


def read_eeprom(board: SharedBoard, address: int, size: int) -> bytes:
    return bytes.fromhex(board.python(
        EEPROM + "os.write(bus, bytes([int(sys.argv[1])])); "
        "print(os.read(bus, int(sys.argv[2])).hex())", address, size))


def register(board: SharedBoard, name: str) -> int:
    line = board.output(COMMAND, "reg", "read", name).splitlines()[-1]
    return int(re.search(r"= 0x([0-9a-f]+)", line)[1], 16)


# --- What one program does, another sees.


def test_a_register_keeps_what_another_program_wrote(board):
    board.output(COMMAND, "reg", "write", "EXP_TIME_1", "77")
    assert register(board, "EXP_TIME_1") == 77


def test_a_chip_keeps_what_another_program_wrote(board):
    write_eeprom(board, 0x20, b"shared")
    assert read_eeprom(board, 0x20, 6) == b"shared"


def test_a_line_keeps_its_level_when_its_program_ends(board):
    folder = "/sys/class/gpio"
    board.output("sh", "-c", f"echo {LASER_LINE} > {folder}/export")
    board.output("sh", "-c", f"echo high > {folder}/gpio{LASER_LINE}/direction")
    assert board.output("cat", f"{folder}/gpio{LASER_LINE}/value") == "1"
    again = board.result("sh", "-c", f"/bin/echo {LASER_LINE} > {folder}/export")
    assert "busy" in again.stdout


def test_the_clock_is_one(board):
    first = register(board, "TIMER_COUNTER_L")
    time.sleep(1)
    assert 50_000_000 <= register(board, "TIMER_COUNTER_L") - first < 50_000_000 * 30


def test_memory_is_one(board):
    text = """
memory = os.open("/dev/mem", os.O_RDWR)
page = mmap.mmap(memory, 4096, offset=0x1000000)
"""
    board.python(text + "page[:4] = b'ruby'")
    assert board.python(text + "print(page[:4].decode())") == "ruby"


def test_the_format_stays(board):
    board.output("v4l2-ctl", "-d", "/dev/video0", "--set-fmt-video=width=320,height=200")
    assert "320/200" in board.output("v4l2-ctl", "-d", "/dev/video0", "--get-fmt-video")


def test_another_program_pulls_the_trigger(board):
    board.stream()
    board.output(COMMAND, "reg", "write", "TRIGGER_CTRL", "0")
    board.output(COMMAND, "reg", "write", "TRI_SPACING", "0")
    board.output(COMMAND, "reg", "write", "TRIGGER_CTRL", "0x40")
    waiting = board.start("v4l2-ctl", "-d", "/dev/video1", "--stream-mmap", "--stream-count=1",
                          "--stream-to=/dev/null")
    wait_until(lambda: board.is_busy("/dev/video1"), waiting)
    assert waiting.poll() is None

    def shot() -> bool:
        board.output(COMMAND, "reg", "write", "TRIGGER_CTRL.software_trigger", "1")
        board.output(COMMAND, "reg", "write", "TRIGGER_CTRL.software_trigger", "0")
        return waiting.poll() is not None

    wait_until(shot)
    assert waiting.wait(60) == 0


def test_triggers_that_nobody_takes_are_gone(board):
    board.stream()
    board.output(COMMAND, "reg", "write", "TRI_SPACING", "0")
    for _ in range(5):
        board.output(COMMAND, "reg", "write", "TRIGGER_CTRL.software_trigger", "1")
        board.output(COMMAND, "reg", "write", "TRIGGER_CTRL.software_trigger", "0")
    late = board.result("timeout", "2", *STREAM)
    assert (late.returncode, late.stdout.count("<")) == (124, 0)


@pytest.mark.parametrize("wait", ["", "select.select([line], [], [])"])
def test_an_interrupt_raised_by_another_program(board, wait):
    waiting = board.start_python(f"""
        line = os.open("/dev/uio0", os.O_RDWR)
        print("waits", flush=True)
        {wait}
        print(struct.unpack("I", os.read(line, 4))[0])
    """)
    assert waiting.stdout.readline() == "waits\n"
    board.output(COMMAND, "reg", "write", "IRQ_CTRL", "4")
    board.python("ctypes.CDLL(None).tessaline_board_external_trigger(1)")
    assert waiting.wait(60) == 0
    assert waiting.stdout.read() == "1\n"


# --- Where a program is.


@pytest.mark.parametrize("shell", [["sh"], ["bash"], ["busybox", "sh"]], ids=lambda shell: shell[0])
def test_a_shell_goes_into_the_folders_of_the_board(board, shell):
    assert board.output(*shell, "-c", f"""
        cd /sys/class/gpio && echo {LASER_LINE} > export && cd gpio{LASER_LINE} && /bin/pwd
        /bin/echo high > direction && /bin/cat < value && echo *
        cd .. && pwd && cd ../uio/uio1 && cat name
        cd /sys/class/uio && cd .. && /bin/pwd && cd nowhere 2>/dev/null || echo stays
        cd /sys/class/gpio/export 2>/dev/null || pwd
    """).splitlines() == [
        f"/sys/class/gpio/gpio{LASER_LINE}", "1", "active_low direction value", "/sys/class/gpio",
        "da", "/sys/class", "stays", "/sys/class"]


def test_tar_packs_a_folder(board, tmp_path):
    archive = tmp_path / "uio.tar"
    packed = board.result("tar", "cf", archive, "-C", "/sys/class/uio", "uio0/name")
    assert "File shrank by 4088 bytes" in packed.stdout  # as in any /sys
    assert board.output("tar", "xOf", archive).startswith("trigger\n")


def test_programs_of_older_c_libraries_see_the_devices(board):
    assert board.python("""
        status = ctypes.create_string_buffer(256)
        print(ctypes.CDLL(None).__xstat(1, b"/dev/video0", status))
    """) == "0"


# --- What only one can have.


def test_a_stream_has_one_owner(board):
    owner = board.start("v4l2-ctl", "-d", "/dev/video1", "--stream-mmap")
    wait_until(lambda: board.is_busy("/dev/video1"), owner)
    refused = board.result("v4l2-ctl", "-d", "/dev/video1", "--set-fmt-video=width=320,height=200")
    assert "busy" in refused.stdout
    # The other stream is free.
    other = board.start("v4l2-ctl", "-d", "/dev/video0", "--stream-mmap")
    wait_until(lambda: board.is_busy("/dev/video0"), other)
    kill(owner)
    board.output("v4l2-ctl", "-d", "/dev/video1", "--set-fmt-video=width=320,height=200")


def test_the_watchdog_has_one_owner_and_runs_on_when_that_is_killed(board):
    owner = board.start_python("""
        dog = os.open("/dev/watchdog", os.O_WRONLY)
        print("open", flush=True)
        time.sleep(1000)
    """)
    assert owner.stdout.readline() == "open\n"
    refused = board.result("sh", "-c", "echo > /dev/watchdog")
    assert "busy" in refused.stdout.lower()
    kill(owner)
    left = """
        dog = os.open("/dev/watchdog", os.O_WRONLY)
        print(fcntl.ioctl(dog, 0x80045707, bytes(4))[0]); os.write(dog, b"V")
    """
    assert 0 < int(board.python(left)) <= 10


def test_a_forked_child_does_not_end_its_parents_right(board):
    parent = board.start_python("""
        dog = os.open("/dev/watchdog", os.O_WRONLY)
        if os.fork() == 0:
            os.close(dog)
            os._exit(0)
        os.wait()
        print("over", flush=True)
        time.sleep(1000)
    """)
    assert parent.stdout.readline() == "over\n"
    assert "busy" in board.result("sh", "-c", "echo > /dev/watchdog").stdout.lower()


WATCHDOG = """
def opens():
    try:
        os.close(os.open("/dev/watchdog", os.O_WRONLY))
        return "opens"
    except OSError as error:
        return error.strerror
"""


def test_a_forked_child_is_another_program(board):
    assert board.python(WATCHDOG + """
ready, go = os.pipe()
if os.fork() == 0:
    os.read(ready, 1)
    print(opens(), flush=True)
    os._exit(0)
dog = os.open("/dev/watchdog", os.O_WRONLY)
os.write(go, b"x")
os.wait()
""") == "Device or resource busy"


def test_a_killed_owner_lets_go_although_its_child_lives(board):
    owner = board.start_python("""
        dog = os.open("/dev/watchdog", os.O_WRONLY)
        if os.fork() == 0:
            os.close(1)
            os.close(2)
            time.sleep(1000)
        print("open", flush=True)
        time.sleep(1000)
    """)
    assert owner.stdout.readline() == "open\n"
    kill(owner)
    assert board.python(WATCHDOG + "print(opens())") == "opens"


# --- Who is killed lets go.


@pytest.mark.parametrize("model", SERIES)
def test_the_sensor_goes_on_without_its_application(model):
    board = SharedBoard(model)
    try:
        board.stream()
        assert board.output(*STREAM).count("<") == 3
    finally:
        board.end()


def test_a_program_killed_in_a_transfer_locks_nothing(board):
    for _ in range(15):
        busy = board.start_python(EEPROM + """
print("runs", flush=True)
while True:
    os.write(bus, bytes(1))
    os.read(bus, 64)
""")
        assert busy.stdout.readline() == "runs\n"
        time.sleep(random.uniform(0, 0.02))
        kill(busy)
        read_eeprom(board, 0, 4)


def test_frame_ids_go_on_from_program_to_program(board, tmp_path):
    board.stream()
    ids = []
    for name in ("first", "second"):
        path = tmp_path / name
        board.output(*STREAM, f"--stream-to={path}")
        ids.append(int.from_bytes(path.read_bytes()[:8], "little"))
    assert 0 < ids[0] < ids[1]


# --- What is kept, and what is not shared.


def test_what_a_folder_keeps_from_run_to_run(tmp_path):
    for expected, written in ((b"\xff" * 4, b"kept"), (b"kept", b"more"), (b"more", b"more")):
        board = SharedBoard("K3610", "--state", tmp_path / "state")
        try:
            assert read_eeprom(board, 8, 4) == expected
            write_eeprom(board, 8, written)
        finally:
            board.end()
    assert (tmp_path / "state" / "eeprom.bin").read_bytes()[8:12] == b"more"


def test_a_file_of_another_size_is_refused(tmp_path):
    (tmp_path / "eeprom.bin").write_bytes(b"short")
    result = subprocess.run([RUNNER, "run", "--state", tmp_path, "--", "true"], text=True,
                            capture_output=True, timeout=60)
    assert result.returncode == 2
    assert "eeprom.bin has 5 bytes, the chip has 512" in result.stderr


def test_two_runs_are_two_boards(board):
    other = SharedBoard()
    try:
        write_eeprom(board, 0, b"one")
        assert read_eeprom(other, 0, 3) == b"\xff\xff\xff"
    finally:
        other.end()


def test_another_model_is_a_board_of_its_own(board):
    board.output(COMMAND, "reg", "write", "EXP_TIME_1", "77")
    own = board.output(COMMAND, "--virtual", "K3920", "reg", "read", "EXP_TIME_1")
    assert "0x00000064" in own
    told = board.output("sh", "-c", "TESSALINE_BOARD=K3920 ls /dev/spidev1.0")
    assert "this program has a K3920 of its own" in told
    assert told.endswith("/dev/spidev1.0")
    assert register(board, "EXP_TIME_1") == 77


def test_unplugging_is_one_programs_affair(board):
    write_eeprom(board, 0, b"kept")
    board.python("ctypes.CDLL(None).tessaline_board_unplug()")
    assert read_eeprom(board, 0, 4) == b"kept"


def test_programs_that_start_at_once_make_one_board(board, tmp_path):
    memory = tmp_path / "memory"  # of a board that nobody has made yet
    memory.touch()
    board.environment["TESSALINE_BOARD_SHARED"] = str(memory)
    programs = [board.start(COMMAND, "reg", "write", f"EXP_TIME_{number}", str(number))
                for number in range(1, 6)]
    assert [program.wait(60) for program in programs] == [0] * 5
    assert [register(board, f"EXP_TIME_{number}") for number in range(1, 6)] == [1, 2, 3, 4, 5]


def test_a_program_that_comes_after_the_run_says_why_it_ends(board):
    board.environment["TESSALINE_BOARD_SHARED"] = "/proc/self/fd/999"
    late = board.result("true")
    assert late.returncode == 2
    assert "the run whose board this program would share has ended" in late.stdout
