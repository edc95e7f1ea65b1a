"""i2c-tools and python3-smbus on the virtual board's buses."""

from __future__ import annotations

import re

import pytest

# Where each board has what answers: bus -> addresses.
CHIPS = {
    "K3610": {0: {0x36, 0x50, 0x51}, 1: {0x2F, 0x60}},
    "K3710": {0: {0x10, 0x50, 0x51}, 1: {0x2F, 0x60}},
    "K3820": {0: {0x2F, 0x50, 0x51, 0x60}, 1: set()},
    "K3910": {0: {0x3E, 0x50, 0x51, 0x60}, 1: set()},
    "K4010": {0: {0x3E, 0x50, 0x51, 0x60}, 1: set()},
}
ERASED = "0xff"
SYSTEM_PYTHON = "/usr/bin/python3"  # the one that Debian's python3-smbus is for


def found(table: str) -> set[int]:
    """The addresses that i2cdetect shows."""
    rows = [line.split(":")[1] for line in table.splitlines()[1:]]
    return {int(cell, 16) for row in rows for cell in row.split() if cell != "--"}


def cells(dump: str) -> list[str]:
    """The cells of an i2cdump, without the column of letters."""
    rows = [line.split(": ")[1].split("    ")[0] for line in dump.splitlines()
            if re.match(r"[0-9a-f]{2}: ", line)]
    return [cell for row in rows for cell in row.split()]


def crc8(values: list[int]) -> int:
    """The check byte of SMBus, bit by bit."""
    crc = 0
    for value in values:
        crc ^= value
        for _ in range(8):
            crc = (crc << 1) ^ (0x107 if crc & 0x80 else 0)
    return crc


def test_the_list_has_both_buses(board):
    listed = board("K3610").output("i2cdetect", "-l")
    assert [line.split("\t")[0] for line in listed.splitlines()] == ["i2c-0", "i2c-1"]


def test_the_functions_are_those_of_plain_adapters(board):
    listed = board("K3610").output("i2cdetect", "-F", "0")
    missing = {line.rsplit(None, 1)[0] for line in listed.splitlines() if line.endswith(" no")}
    assert missing == {"SMBus Block Read", "SMBus Block Process Call"}


@pytest.mark.parametrize("model", CHIPS)
@pytest.mark.parametrize("probe", [[], ["-r"], ["-q"], ["-a"]], ids=lambda probe: "".join(probe))
@pytest.mark.parametrize("bus", [0, 1])
def test_detection_finds_the_chips(board, model, probe, bus):
    table = board(model).output("i2cdetect", "-y", *probe, str(bus))
    assert found(table) == CHIPS[model][bus]


def test_get_reads_bytes_words_and_blocks(board):
    here = board("K3610")
    assert here.output("i2cget", "-y", "0", "0x50", "0x10", "b").strip() == ERASED
    assert here.output("i2cget", "-y", "0", "0x50", "0x10", "w").strip() == "0xffff"
    assert here.output("i2cget", "-y", "0", "0x50", "0x10", "c").strip() == ERASED
    assert here.output("i2cget", "-y", "0", "0x50", "0x10", "i", "8").split() == 8 * [ERASED]
    assert here.transcript()[-1].endswith(
        "i2c-0 I2C_SMBUS w 0x50 10; r 0x50 ff ff ff ff ff ff ff ff")


def test_get_from_a_missing_chip_fails(board):
    done = board("K3610").run("i2cget", "-y", "0", "0x22", "0")
    assert done.returncode != 0
    assert "Read failed" in done.stderr


@pytest.mark.parametrize(("values", "mode", "on_the_wire"), [
    (["0x77"], "b", "77"),
    (["0x1234"], "w", "34 12"),
    (["1", "2", "3"], "i", "01 02 03"),
    (["1", "2", "3"], "s", "03 01 02 03"),
])
def test_set_writes(board, values, mode, on_the_wire):
    here = board("K3610")
    here.output("i2cset", "-y", "0", "0x50", "3", *values, mode)
    assert here.transcript()[-1].endswith(f"i2c-0 I2C_SMBUS w 0x50 03 {on_the_wire}")


def test_an_eeprom_does_not_answer_while_it_writes(board):
    done = board("K3610").run("i2cset", "-y", "-r", "0", "0x50", "3", "0x77", "b")
    assert "readback failed" in done.stdout + done.stderr


def test_a_check_byte_ends_a_message(board):
    here = board("K3610")
    # CRC-8 over address, command and data.
    here.output("i2cset", "-y", "0", "0x50", "3", "0x77", "bp")
    assert any(line.endswith(f"i2c-0 I2C_SMBUS w 0x50 03 77 {crc8([0xA0, 3, 0x77]):02x}")
               for line in here.transcript())


@pytest.mark.parametrize("mode", ["b", "c", "i"])
def test_dump_shows_the_erased_eeprom(board, mode):
    assert cells(board("K3610").output("i2cdump", "-y", "0", "0x51", mode)) == 256 * ["ff"]


def test_dump_shows_words(board):
    assert cells(board("K3610").output("i2cdump", "-y", "0", "0x50", "w")) == 256 * ["ffff"]


def test_dump_in_block_mode_says_what_is_missing(board):
    done = board("K3610").run("i2cdump", "-y", "0", "0x50", "s")
    assert done.returncode != 0
    assert "block read" in done.stderr


@pytest.mark.parametrize(("model", "address"), [("K3610", "0x36"), ("K3710", "0x10")])
def test_transfer_writes_and_reads_a_sensor_register(board, model, address):
    read = board(model).output("i2ctransfer", "-y", "0", f"w3@{address}", "0x33", "0x10", "0x5a",
                               f"w2@{address}", "0x33", "0x10", "r1")
    assert read.strip() == "0x5a"


def test_python_smbus_sees_what_it_wrote(board):
    here = board("K3610")
    probe = here.run(SYSTEM_PYTHON, "-c", "import smbus")
    if probe.returncode != 0:
        pytest.skip("python3-smbus is not installed")
    program = """
import smbus, time
bus = smbus.SMBus(0)
bus.write_i2c_block_data(0x50, 0x20, [1, 2, 3, 4])
time.sleep(0.02)
print(bus.read_i2c_block_data(0x50, 0x20, 4), bus.read_byte_data(0x50, 0x21),
      hex(bus.read_word_data(0x50, 0x22)), bus.read_byte(0x50))
bus.write_quick(0x36)
for missing in (lambda: bus.read_byte(0x22), lambda: bus.read_block_data(0x50, 0)):
    try:
        print(missing())
    except OSError as error:
        print(error.errno)
"""
    assert here.python(program, SYSTEM_PYTHON).split("\n")[:3] == [
        "[1, 2, 3, 4] 2 0x403 255", "6", "95"]
