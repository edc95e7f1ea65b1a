"""Registers, files in /sys, the watchdog and the thermometer through the tools that people use."""

from __future__ import annotations

import re

import pytest

VERSIONS = {  # where a family has its version register, and its series
    "K3610": (0x43C0003C, 0x15),
    "K3710": (0x43C0003C, 0x16),
    "K3820": (0x43C0003C, 0x17),
    "K3910": (0x43C0003C, 0x18),
    "K4010": (0xA000003C, 0x19),
}
SPACING = 0x43C10008  # keeps what is written


def devmem(here, *arguments) -> str:
    return here.output("busybox", "devmem", *(str(argument) for argument in arguments)).strip()


@pytest.mark.parametrize("model", VERSIONS)
def test_devmem_reads_the_version_in_every_width(board, model):
    address, series = VERSIONS[model]
    here = board(model)
    word = int(devmem(here, hex(address), 32), 16)
    assert word >> 16 == series
    assert int(devmem(here, hex(address), 16), 16) == word & 0xFFFF
    assert int(devmem(here, hex(address + 2), 16), 16) == series
    assert int(devmem(here, hex(address + 1), 8), 16) == word >> 8 & 0xFF


@pytest.mark.parametrize(("width", "value", "seen"), [
    (32, "0x11223344", "0x11223344"), (16, "0x5566", "0x00005566"), (8, "0x77", "0x00000077")])
def test_devmem_writes_in_every_width(board, width, value, seen):
    here = board("K3610")
    devmem(here, hex(SPACING), width, value)
    assert here.transcript()[-1].endswith(f"write IMAGE_BLOCK_1 TRI_SPACING = {seen}")


def test_one_mapping_shows_every_read_and_write(board):
    program = f"""
import ctypes, mmap, os, time
fd = os.open("/dev/mem", os.O_RDWR)
memory = mmap.mmap(fd, 4096, offset={SPACING & ~0xFFF})
words = (ctypes.c_uint32 * 1024).from_buffer(memory)
words[2] = 5
first, timer = words[2], words[3]
words[2] = 6
words[11] = 7
time.sleep(0.01)
print(first, words[2], words[11], words[3] - timer > 0)
print(memory[8:12].hex(), memory[8:40].hex()[:8])
"""
    here = board("K3610")
    assert here.python(program).splitlines() == ["5 6 7 True", "06000000 06000000"]
    writes = [line.split("fpga ")[1] for line in here.transcript() if "fpga write" in line]
    assert writes == ["write IMAGE_BLOCK_1 TRI_SPACING = 0x00000005",
                      "write IMAGE_BLOCK_1 TRI_SPACING = 0x00000006",
                      "write IMAGE_BLOCK_1 IMG_FILTER_WIDTH = 0x00000007"]


def test_dd_reads_memory_but_no_registers(board):
    here = board("K3610")
    ram = here.output("dd", "if=/dev/mem", "bs=4", "count=2", "skip=1000", text=False)
    assert ram == bytes(8)
    done = here.run("dd", "if=/dev/mem", "bs=4", "count=1", f"skip={SPACING // 4}")
    assert "Bad address" in done.stderr


def test_dd_writes_and_reads_the_dma_buffer(board, tmp_path):
    script = ("printf abcd | dd of=/dev/udmabuf0 bs=1 seek=16 conv=notrunc && "
              "hexdump -C -s 16 -n 4 /dev/udmabuf0")
    here = board("K3610")
    # Each program has a board of its own, so only the first 4 bytes of the copy can be compared.
    assert here.output("sh", "-c", script).startswith("00000010  ")
    program = """
import os
fd = os.open("/dev/udmabuf0", os.O_RDWR)
os.pwrite(fd, b"abcd", 16)
print(os.lseek(fd, 18, os.SEEK_SET), os.read(fd, 2), os.lseek(fd, 0, os.SEEK_END),
      os.read(fd, 1), os.pread(fd, 3, 17))
"""
    assert here.python(program).strip() == "18 b'cd' 536870912 b'' b'bcd'"


def test_uio_waits_for_exactly_four_bytes(board):
    here = board("K3610")
    done = here.run("dd", "if=/dev/uio0", "bs=8", "count=1")
    assert "Invalid argument" in done.stderr
    done = here.run("dd", "if=/dev/uio0", "bs=4", "count=1", "iflag=nonblock")
    assert "Resource temporarily unavailable" in done.stderr
    assert here.output("dd", "of=/dev/uio0", "bs=4", stdin=b"\1\0\0\0") == ""


@pytest.mark.parametrize("command", [
    ["cat", "{}"], ["head", "-c", "20", "{}"], ["dd", "if={}", "status=none"],
    ["busybox", "cat", "{}"], ["python3", "-c", "print(open('{}').read(), end='')"],
    ["sh", "-c", "read line < {}; echo $line"], ["grep", "", "{}"], ["sed", "", "{}"]],
    ids=lambda command: command[0])
def test_an_attribute_is_read_by_everybody(board, command):
    path = "/sys/class/uio/uio0/name"
    assert board("K3610").output(*(word.format(path) for word in command)) == "trigger\n"


@pytest.mark.parametrize("command", [["cp"], ["busybox", "cp"], ["install"], ["dd"]],
                         ids=lambda command: command[-1])
def test_an_attribute_is_copied(board, command, tmp_path):
    source, target = "/sys/class/uio/uio1/name", tmp_path / "copy"
    words = [f"if={source}", f"of={target}"] if command == ["dd"] else [source, str(target)]
    board("K3610").output(*command, *words)
    assert target.read_text() == "da\n"


@pytest.mark.parametrize("tool", ["hexdump", "xxd", "od"])
def test_dumps_show_an_attribute(board, tool):
    options = {"hexdump": ["-C"], "xxd": ["-g1"], "od": ["-An", "-tx1"]}[tool]
    shown = board("K3610").output(tool, *options, "/sys/class/uio/uio0/name")
    assert "74 72 69 67 67 65 72 0a" in shown.replace("  ", " ")


def test_a_folder_is_walked(board):
    here = board("K3610")
    assert here.output("find", "/sys/class/uio/", "-type", "l").split() == [
        "/sys/class/uio/uio0", "/sys/class/uio/uio1"]
    assert "name" in here.output("ls", "-lR", "/sys/class/uio/uio0/")
    assert here.output("stat", "-c", "%F %t:%T", "/dev/i2c-1").strip() == (
        "character special file 59:1")
    here.output("test", "-c", "/dev/uio0")
    program = """
import os, pathlib
print(pathlib.Path("/dev/uio1").is_char_device(),
      sorted(name for _, _, names in os.walk("/sys/class/uio/uio0/") for name in names))
"""
    assert here.python(program).strip() == (
        "True ['dev', 'event', 'name', 'uevent', 'version']")


@pytest.mark.parametrize(("node", "number"), [
    ("video4linux/video0", "81:0"), ("uio/uio1", "240:1"), ("i2c-dev/i2c-0", "89:0"),
    ("misc/watchdog", "10:130"), ("u-dma-buf/udmabuf0", "242:0"), ("mem/mem", "1:1")])
def test_the_classes_tell_the_numbers(board, node, number):
    here = board("K3610")
    name = node.split("/")[1]
    folder = f"/sys/class/{node}"
    assert here.output("cat", f"{folder}/dev").strip() == number
    major, minor = number.split(":")
    assert here.output("cat", f"{folder}/uevent").split() == [
        f"MAJOR={major}", f"MINOR={minor}", f"DEVNAME={name}"]
    assert here.output("readlink", "-f", f"/sys/dev/char/{number}") == here.output(
        "readlink", "-f", folder)


def test_a_line_is_switched_by_the_shell(board):
    script = ("g=/sys/class/gpio; echo 907 > $g/export && echo out > $g/gpio907/direction && "
              "echo 1 > $g/gpio907/value && cat $g/gpio907/value; echo 5 > $g/export")
    done = board("K3610").run("sh", "-c", script)
    # cat has a board of its own, where the line is not exported.
    assert "gpio907/value: No such file" in done.stderr
    script = script.replace("cat $g/gpio907/value", "read v < $g/gpio907/value && echo $v")
    done = board("K3610").run("sh", "-c", script)
    assert done.stdout == "1\n"
    assert "Invalid argument" in done.stderr or "I/O error" in done.stderr


def test_wdctl_shows_the_watchdog(board):
    shown = board("K3610").output("wdctl", "/dev/watchdog0")
    assert re.search(r"Identity: +cdns_wdt watchdog", shown)
    assert re.search(r"Timeout: +10 seconds", shown)


def test_wdctl_shows_that_opening_feeds(board):
    shown = board("K3610").output("wdctl", "/dev/watchdog0")
    assert re.search(r"^KEEPALIVEPING .* 1 +0$", shown, re.MULTILINE)


@pytest.mark.parametrize("write", ["", "; printf V >&3"])
def test_the_status_is_shown_once(board, write):
    script = ("s=/sys/class/watchdog/watchdog0/status; exec 3>/dev/watchdog" + write +
              "; read first <$s; read second <$s; echo $first $second")
    expected = "0x8100 0x100" if write else "0x8000 0x0"
    assert board("K3610").output("sh", "-c", script).strip() == expected


def test_wdctl_sets_the_timeout(board):
    here = board("K3610")
    here.output("wdctl", "-s", "30", "/dev/watchdog0")
    assert any(line.endswith("watchdog WDIOC_SETTIMEOUT 30") for line in here.transcript())


@pytest.mark.parametrize(("model", "channel"), [("K3610", "temp0"), ("K4010", "temp0")])
def test_libiio_measures_about_forty_degrees(board, model, channel):
    here = board(model)

    def value(attribute: str) -> float:
        return float(here.output("iio_attr", "-c", "iio:device0", channel, attribute))

    degrees = (value("raw") + value("offset")) * value("scale") / 1000
    assert 39 < degrees < 41
    assert "iio:device0: tessaline-monitor" in here.output("iio_info")


def test_udevadm_knows_a_device_by_its_node(board):
    shown = board("K3610").output("udevadm", "info", "-q", "path", "-n", "/dev/video0")
    assert shown.strip() == "/devices/platform/tessaline/video4linux/video0"
