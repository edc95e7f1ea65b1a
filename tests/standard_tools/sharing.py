"""A board that programs share, and the programs that the tests run on it."""

from __future__ import annotations

import os
import signal
import subprocess
import sys
import tempfile
import textwrap
import time
from pathlib import Path

import tools_table

BUILD = Path(os.environ.get("TESSALINE_BOARD_LIBRARY", "./libtessaline-board.so")).parent
RUNNER = BUILD / "tessaline-board"
COMMAND = BUILD / "tessaline"
PATIENCE = 60  # seconds for what takes one, on a busy machine


class SharedBoard:
    """A run of the virtual board, open until the end of the test."""

    def __init__(self, model: str = "K3610", *options: object):
        words = [RUNNER, "run", "--model", model, *options, "--", "sh", "-c",
                 "env -0; printf 'end\\0'; exec cat"]
        self._run = subprocess.Popen([str(word) for word in words], stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE)
        self._left = []
        self._folder = tempfile.TemporaryDirectory()
        self.environment = self._read_environment()

    def _read_environment(self) -> dict[str, str]:
        text = b""
        while not text.endswith(b"end\0"):
            piece = os.read(self._run.stdout.fileno(), 65536)
            assert piece, "the runner has ended"
            text += piece
        pairs = (entry.partition("=") for entry in text.decode().split("\0")[:-2])
        return {name: value for name, _, value in pairs}

    def start(self, *words: object, **more) -> subprocess.Popen:
        tools_table.note(words)
        program = subprocess.Popen([str(word) for word in words], env=self.environment, text=True,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **more)
        self._left.append(program)
        return program

    def result(self, *words: object, **more) -> subprocess.CompletedProcess:
        tools_table.note(words)
        return subprocess.run([str(word) for word in words], env=self.environment, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=PATIENCE,
                              **more)

    def output(self, *words: object, **more) -> str:
        result = self.result(*words, **more)
        assert result.returncode == 0, result.stdout
        return result.stdout.strip()

    def python(self, text: str, *arguments: object) -> str:
        """What a Python program prints, with os, fcntl, struct and time at hand."""
        return self.output(*_python(text, arguments))

    def start_python(self, text: str, *arguments: object) -> subprocess.Popen:
        return self.start(*_python(text, arguments))

    def stream(self, kind: str = "strips") -> None:
        """An application that is killed while it captures. The FPGA and the sensor go on."""
        environment = self.environment | {"TESSALINE_BOARD_SLEEP": "0"}
        sink = Path(self._folder.name, "frames.raw")
        words = [COMMAND, "capture", kind, "-n", "1000000", "-o", sink, "--force"]
        application = subprocess.Popen([str(word) for word in words], env=environment, text=True,
                                       stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self._left.append(application)
        wait_until(lambda: sink.exists() and sink.stat().st_size > 0, application)
        kill(application)
        sink.unlink()

    def is_busy(self, node: str) -> bool:
        """Whether a program has buffers of a capture device."""
        return self.python("""
            node = os.open(sys.argv[1], os.O_RDWR)
            request = struct.pack("5I", 1, 1, 1, 0, 0)  # one buffer, capture, mmap
            try:
                fcntl.ioctl(node, 0xC0145608, request)
                print("free")
            except OSError as error:
                print(error.strerror)
        """, node) == "Device or resource busy"

    def end(self) -> None:
        for program in self._left:
            if program.poll() is None:
                kill(program)
            program.stdout.close()
        self._run.stdin.close()
        self._run.wait(PATIENCE)
        self._run.stdout.close()
        self._folder.cleanup()


def _python(text: str, arguments) -> list[object]:
    heading = "import ctypes, fcntl, mmap, os, select, struct, sys, time\n"
    return [sys.executable, "-c", heading + textwrap.dedent(text), *arguments]


def kill(program: subprocess.Popen) -> None:
    program.send_signal(signal.SIGKILL)
    program.wait(PATIENCE)


def wait_until(condition, program: subprocess.Popen | None = None) -> None:
    end = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < end, "it took too long"
        if program is not None and program.poll() is not None:
            raise AssertionError(program.stdout.read())
        time.sleep(0.02)
