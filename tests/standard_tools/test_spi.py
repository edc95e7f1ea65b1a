"""spi-tools on the boards whose sensor is on SPI."""

from __future__ import annotations

import re

import pytest

DEVICES = {"K3820": "/dev/spidev1.0", "K3910": "/dev/spidev1.0", "K4010": "/dev/spidev0.0"}
models = pytest.mark.parametrize(("model", "device"), DEVICES.items())


@models
def test_config_shows_the_settings(board, model, device):
    shown = board(model).output("spi-config", "-d", device, "-q")
    assert shown.startswith(f"{device}: mode=0, lsb=0, bits=8, speed=25000000")


@models
def test_config_sets_mode_and_speed(board, model, device):
    here = board(model)
    here.output("spi-config", "-d", device, "-m", "1", "-s", "1000000")
    written = [line.split(" ", 1)[1] for line in here.transcript() if "_WR_" in line]
    assert any("SPI_IOC_WR_MODE" in line and line.endswith(" 1") for line in written)
    assert any(line.endswith("SPI_IOC_WR_MAX_SPEED_HZ 1000000") for line in written)


# The kernel forgets the speed when the last program closes the device, but not the mode.
@models
def test_the_speed_is_forgotten_at_the_last_close(board, model, device):
    program = """
import fcntl, os, struct, sys
READ, WRITE, READ_MODE, WRITE_MODE = 0x80046B04, 0x40046B04, 0x80016B01, 0x40016B01
device = sys.argv[1]

def speed(fd):
    return struct.unpack("I", fcntl.ioctl(fd, READ, bytes(4)))[0]

first = os.open(device, os.O_RDWR)
fcntl.ioctl(first, WRITE, struct.pack("I", 1000000))
fcntl.ioctl(first, WRITE_MODE, b"\\1")
second = os.open(device, os.O_RDWR)
os.close(first)
kept = speed(second)
os.close(second)
third = os.open(device, os.O_RDWR)
print(kept, speed(third), fcntl.ioctl(third, READ_MODE, bytes(1))[0])
""".replace("sys.argv[1]", repr(device))
    assert board(model).python(program).split() == ["1000000", "25000000", "1"]


@models
@pytest.mark.parametrize("option", [["-b", "16"], ["-l", "1"]], ids=lambda option: option[0])
def test_config_is_refused_what_the_controller_cannot_do(board, model, device, option):
    done = board(model).run("spi-config", "-d", device, *option)
    assert "Invalid argument" in done.stdout + done.stderr


def test_a_board_without_spi_has_no_device(board):
    done = board("K3610").run("spi-config", "-d", "/dev/spidev1.0", "-q")
    assert done.returncode != 0
    assert "No such file" in done.stdout + done.stderr


@models
def test_pipe_exchanges_bytes(board, model, device):
    here = board(model)
    read = here.output("spi-pipe", "-d", device, "-b", "3", "-n", "1", stdin=b"\x00\x00\x00",
                       text=False)
    assert len(read) == 3
    sent = [line for line in here.transcript() if re.search(r" tx 00 00 00 rx", line)]
    assert len(sent) == 1
    assert sent[0].endswith("rx " + read.hex(" "))


@models
def test_pipe_cannot_send_more_than_the_driver_holds(board, model, device):
    done = board(model).run("spi-pipe", "-d", device, "-b", "4097", "-n", "1",
                            stdin=bytes(4097), text=False)
    assert "Message too long" in done.stderr or done.returncode != 0


@models
def test_the_kernel_tells_of_the_chip(board, model, device):
    name = device.removeprefix("/dev/spidev")
    here = board(model)
    assert here.output("cat", f"/sys/bus/spi/devices/spi{name}/modalias").startswith("spi:")
    link = here.output("readlink", "-f", f"/sys/class/spidev/spidev{name}/device").strip()
    assert link == here.output("readlink", "-f", f"/sys/bus/spi/devices/spi{name}").strip()
