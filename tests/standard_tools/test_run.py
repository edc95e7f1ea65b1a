"""The command tessaline-board: which programs it runs, how, and which it refuses."""

import json
import os
import pathlib
import pty
import re
import shutil
import signal
import struct
import subprocess
import sys
import time

import pytest

LIBRARY = pathlib.Path(os.environ["TESSALINE_BOARD_LIBRARY"]).absolute()
RUNNER = LIBRARY.parent / "tessaline-board"
TEMPERATURE = "/sys/devices/soc0/amba/f8007100.adc/iio:device0/in_temp0_raw"
SHOW_ID = "import os; print(os.getpid(), flush=True)"

needs_root = pytest.mark.skipif(os.geteuid() != 0, reason="makes files of other users")


def command(*words, options=(), runner=RUNNER):
    return [str(runner), "run", *options, "--", *map(str, words)]


def environment(**variables):
    usual = {name: value for name, value in os.environ.items()
             if name != "LD_PRELOAD" and not name.startswith("TESSALINE_BOARD")}
    return usual | variables


def run(*words, options=(), runner=RUNNER, **more):
    variables = more.pop("variables", {})
    return subprocess.run(command(*words, options=options, runner=runner), capture_output=True,
                          text=True, timeout=60, env=environment(**variables), **more)


def start(*words, options=(), **more):
    return subprocess.Popen(command(*words, options=options), stdout=subprocess.PIPE, text=True,
                            env=environment(), **more)


def is_there(process):
    try:
        state = pathlib.Path(f"/proc/{process}/stat").read_text()
    except OSError:
        return False
    return state.rpartition(")")[2].split()[0] != "Z"


def eventually(what):
    end = time.monotonic() + 10
    while not what() and time.monotonic() < end:
        time.sleep(0.01)
    return what()


def script(path, text):
    path.write_text(text)
    path.chmod(0o755)
    return path


@pytest.fixture(scope="module")
def programs(tmp_path_factory):
    """A program, dynamically and statically linked, and others made of it."""
    folder = tmp_path_factory.mktemp("programs")
    source = folder / "program.c"
    source.write_text("int main(void) { return 0; }\n")
    for name, flags in (("dynamic", []), ("static", ["-static"])):
        built = subprocess.run(["cc", *flags, "-o", folder / name, source], capture_output=True)
        if built.returncode != 0:
            pytest.skip(f"cc {flags} does not work here")
    elf = bytearray((folder / "dynamic").read_bytes())
    loader = re.search(rb"/lib[^\0]*/ld-linux[^\0]*\0", elf)
    musl = bytearray(elf)
    musl[loader.start():loader.end()] = b"/lib/ld-musl-x.so.1".ljust(len(loader[0]), b"\0")
    foreign = bytearray(elf)
    struct.pack_into("<H", foreign, 18, 0x1234)  # e_machine
    narrow = bytearray(elf)
    narrow[4] = 1  # 32 bits
    for name, data in (("musl", musl), ("foreign", foreign), ("narrow", narrow)):
        (folder / name).write_bytes(data)
        (folder / name).chmod(0o755)
    script(folder / "script", f"#!{folder}/static\n")
    script(folder / "of_script", f"#!{folder}/script\n")
    script(folder / "by_env", "#!/usr/bin/env static\n")
    script(folder / "split", "#!/usr/bin/env -S A=1 static -x\n")
    return folder


REFUSED = [("static", "it is statically linked"), ("foreign", "another machine"),
           ("narrow", "another machine"), ("musl", "another loader"),
           ("script", "its interpreter .*/static is statically linked"),
           ("of_script", "its interpreter .*/static is statically linked"),
           ("by_env", "its interpreter .*/static is statically linked"),
           ("split", "its interpreter .*/static is statically linked")]


@pytest.mark.parametrize("name, why", REFUSED)
def test_it_refuses_what_would_run_without_the_board(programs, name, why):
    path = {"PATH": f"{programs}:{os.environ['PATH']}"}
    ended = run(programs / name, variables=path)
    assert ended.returncode == 126
    assert re.search(f"would run without the virtual board: .*{why}", ended.stderr)
    assert ended.stderr.count("\n") == 1


@needs_root
@pytest.mark.parametrize("user, group, mode, refused", [
    (65534, 0, 0o4755, True), (0, 65534, 0o2755, True), (0, 0, 0o6755, False),
    (0, 65534, 0o2745, False)])
def test_it_refuses_a_change_of_rights(programs, tmp_path, user, group, mode, refused):
    program = shutil.copy(programs / "dynamic", tmp_path / "program")
    os.chown(program, user, group)
    os.chmod(program, mode)
    ended = run(program)
    assert ended.returncode == (126 if refused else 0)
    assert ("rights of another user" in ended.stderr) == refused


@needs_root
def test_it_refuses_file_capabilities_of_others_than_root(programs, tmp_path):
    if shutil.which("setpriv") is None:
        pytest.skip("there is no setpriv")
    folder = pathlib.Path("/tmp") / f"tessaline-run-{os.getpid()}"
    folder.mkdir(mode=0o755)
    try:
        program = shutil.copy(programs / "dynamic", folder / "program")
        # Version 2, effective; cap_net_raw.
        os.setxattr(program, "security.capability",
                    struct.pack("<5I", 0x02000001, 1 << 13, 0, 0, 0))
        for name in (RUNNER.name, LIBRARY.name):
            shutil.copy(RUNNER.parent / name, folder / name)
        other = ["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups"]
        words = command(program, runner=folder / RUNNER.name)
        ended = subprocess.run(other + words, capture_output=True, text=True, env=environment())
        assert ended.returncode == 126 and "has file capabilities" in ended.stderr
        assert run(program).returncode == 0  # root has them anyway
    finally:
        shutil.rmtree(folder)


def test_names_may_have_any_characters(programs, tmp_path):
    for name in ("a=b", "with blank", "with:colon", "-dash", "line\nend"):
        folder = tmp_path / f"in {name}"
        folder.mkdir()
        program = shutil.copy(programs / "dynamic", folder / name)
        assert run(program).returncode == 0
        if ":" not in name:
            assert run(name, variables={"PATH": str(folder)}).returncode == 0


def test_the_library_may_be_in_a_folder_with_any_name(tmp_path):
    folder = tmp_path / "a b:c $LIB\n"
    folder.mkdir()
    shutil.copy(LIBRARY, folder / LIBRARY.name)
    runner = shutil.copy(RUNNER, folder / RUNNER.name)
    for preloaded in ("", "libm.so.6 libdl.so.2"):
        ended = run("sh", "-c", f"cat {TEMPERATURE}; echo $LD_PRELOAD", runner=runner,
                    variables={"LD_PRELOAD": preloaded})
        assert ended.stderr == ""
        number, names = ended.stdout.splitlines()
        assert int(number) > 0
        assert names.split(":")[1:] == preloaded.split()


def test_what_is_not_there_is_127_and_what_cannot_run_126(programs, tmp_path):
    assert run("no-such-program").returncode == 127
    assert run(tmp_path / "no-such-program").returncode == 127
    assert run(tmp_path).returncode == 126
    plain = tmp_path / "plain"
    plain.write_text("exit 5\n")
    assert run(plain).returncode == 126
    plain.chmod(0o755)
    assert run(plain).returncode == 5  # as a shell runs it
    lost = script(tmp_path / "lost", "#!/no/such/interpreter\n")
    ended = run(lost)
    assert ended.returncode == 126 and "/no/such/interpreter is not there" in ended.stderr


def test_the_status_is_that_of_the_program():
    assert run("sh", "-c", "exit 7").returncode == 7
    assert run("sh", "-c", "kill -9 $$").returncode == 137


def test_standard_streams_are_the_programs(tmp_path):
    ended = run("sh", "-c", "cat; echo bad >&2; exec >&- <&-; sleep 0.1", input="text")
    assert (ended.stdout, ended.stderr) == ("text", "bad\n")
    # Nobody else holds them open.
    running = start("sh", "-c", "exec >&-; sleep 30")
    began = time.monotonic()
    assert running.stdout.read() == ""
    assert time.monotonic() - began < 10
    running.terminate()
    assert running.wait(10) == 128 + signal.SIGTERM


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGUSR1,
                                    signal.SIGRTMIN])
def test_signals_are_passed_on(number):
    program = f"trap 'exit 42' {int(number)}; echo ready; while :; do sleep 0.05; done"
    running = start("bash", "-c", program)
    assert running.stdout.readline() == "ready\n"
    running.send_signal(number)
    assert running.wait(10) == 42


def on_terminal(program):
    """Starts a program as a terminal's session. Returns its number and the terminal."""
    process, terminal = pty.fork()
    if process == 0:
        os.execve(RUNNER, command(sys.executable, "-c", program), environment())
    return process, terminal


def read_until(terminal, text):
    seen = b""
    while text not in seen:
        seen += os.read(terminal, 1000)
    return seen


def test_a_terminals_interrupt_comes_once():
    # Each delivery writes a byte.
    process, terminal = on_terminal(
        "import os, signal, time\nseen, written = os.pipe2(os.O_NONBLOCK)\n"
        "signal.set_wakeup_fd(written)\nsignal.signal(signal.SIGINT, lambda *_: None)\n"
        "print('ready', flush=True)\nend = time.monotonic() + 2\n"
        "while time.monotonic() < end: time.sleep(0.05)\n"
        "print('count', len(os.read(seen, 1000)), 'in all', flush=True)\n")
    read_until(terminal, b"ready")
    for _ in range(10):
        os.write(terminal, b"\x03")
        time.sleep(0.05)
    assert b"count 10 in all" in read_until(terminal, b"in all")
    assert os.waitstatus_to_exitcode(os.waitpid(process, 0)[1]) == 0
    os.close(terminal)


def test_the_shell_sees_it_stop_and_go_on():
    shell, terminal = pty.fork()
    if shell == 0:
        os.execve("/bin/bash", ["bash", "--norc", "--noprofile", "-im"], environment(PS1="$"))
    def tell(text):
        os.write(terminal, text.encode() + b"\n")
    tell("exec 2>&1; stty -echo")
    tell(f"{RUNNER} run -- sh -c 'echo up; kill -TSTP $$; echo again; exit 6'")
    read_until(terminal, b"up")
    read_until(terminal, b"Stopped")
    tell("fg")
    read_until(terminal, b"again")
    tell("echo status=$?")
    assert b"status=6" in read_until(terminal, b"status=6")
    tell("exit")
    os.waitpid(shell, 0)
    os.close(terminal)


def test_the_program_ends_with_the_command():
    running = start(sys.executable, "-c", SHOW_ID + "\nimport time; time.sleep(60)")
    program = int(running.stdout.readline())
    assert program != running.pid and is_there(program)
    running.kill()
    running.wait()
    assert eventually(lambda: not is_there(program))


def test_an_ignored_end_of_children_does_not_matter():
    ignore = lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN)  # noqa: E731
    ended = run(sys.executable, "-c", "import signal; "
                "print(signal.getsignal(signal.SIGCHLD) == signal.SIG_IGN); raise SystemExit(3)",
                preexec_fn=ignore)
    assert (ended.stdout, ended.returncode) == ("True\n", 3)


SHARED = ("import os; path = os.environ.get('TESSALINE_BOARD_SHARED', 'none'); "
          "print(path, os.environ.get('TESSALINE_BOARD_STATE')); "
          "path == 'none' or print(os.readlink(path), os.stat(path).st_size)")


def test_programs_find_the_boards_memory():
    lines = run(sys.executable, "-c", SHARED).stdout.splitlines()
    assert re.fullmatch(r"/proc/\d+/fd/\d+ None", lines[0])
    assert lines[1].startswith("/memfd:tessaline-board (deleted) ")
    assert run(sys.executable, "-c", SHARED, options=["--private"]).stdout == "none None\n"


def test_a_run_inside_a_run_has_a_board_of_its_own(tmp_path):
    state = ["--state", str(tmp_path)]
    inside = " ".join(command(sys.executable, "-c", f'"{SHARED}"'))
    ended = run("sh", "-c", f"{sys.executable} -c \"{SHARED}\"; {inside}", options=state)
    outer, _, inner, _ = ended.stdout.splitlines()
    assert ended.stderr == ""
    assert outer.split()[1] == str(tmp_path) and inner.split()[1] == "None"
    assert outer.split()[0] != inner.split()[0]
    private = " ".join(command(sys.executable, "-c", f'"{SHARED}"', options=["--private"]))
    assert run("sh", "-c", private, options=state).stdout == "none None\n"


def test_the_state_has_a_folder(tmp_path):
    ended = run(sys.executable, "-c", SHARED, options=["--state", "a/b"], cwd=tmp_path)
    assert ended.stdout.splitlines()[0].endswith(f" {tmp_path}/a/b")
    assert (tmp_path / "a/b").is_dir()
    (tmp_path / "file").write_text("")
    ended = run("true", options=["--state", str(tmp_path / "file")])
    assert ended.returncode == 2 and "cannot make the folder" in ended.stderr
    ended = run("true", options=["--state", "/proc/1"])
    assert ended.returncode == 2 and "--state" in ended.stderr


# Programs that start the static program.
STARTERS = {
    "shell": ["sh", "-c", "{} ; true"],
    "spawn": [sys.executable, "-c",
              "import os; os.waitpid(os.posix_spawn('{0}', ['x'], os.environ), 0)"],
    "spawnp": [sys.executable, "-c",
               "import os; os.waitpid(os.posix_spawnp('{0}', ['x'], os.environ), 0)"],
    "vfork": [sys.executable, "-c", "import subprocess; subprocess.run(['{0}'])"],
    "execve": [sys.executable, "-c", "import os; os.execve('{0}', ['x'], os.environ)"],
    "execv": [sys.executable, "-c", "import os; os.execv('{0}', ['x'])"],
    "execvp": ["env", "{0}"],
    "fexecve": [sys.executable, "-c",
                "import os; os.execve(os.open('{0}', os.O_RDONLY), ['x'], os.environ)"],
}


@pytest.mark.parametrize("way", STARTERS)
def test_the_board_says_what_runs_without_it(programs, way):
    words = [word.format(programs / "static") for word in STARTERS[way]]
    ended = run(*words)
    assert re.fullmatch("tessaline-board: .* runs without the virtual board: "
                        "it is statically linked\n", ended.stderr)
    assert ended.returncode == 0
    ended = run(*words, options=["--strict"])
    assert "was not started without the virtual board: it is statically linked" in ended.stderr
    assert ("Permission denied" in ended.stderr)
    words = [word.format(programs / "dynamic") for word in STARTERS[way]]
    assert run(*words, options=["--strict"]).stderr == ""


LISTED = r"""
#include <fcntl.h>
#include <string.h>
#include <unistd.h>
#define _(x) #x
int execveat(int, const char*, char* const*, char* const*, int);
extern char** environ;
int main(int count, char** words) {
  const char* way = words[1];
  const char* path = words[2];
  char* const all[] = {words[2], "1", "2", NULL};
  if (!strcmp(way, "execl")) execl(path, path, "1", "2", (char*)NULL);
  if (!strcmp(way, "execlp")) execlp(path, path, "1", "2", (char*)NULL);
  if (!strcmp(way, "execle")) execle(path, path, "1", "2", (char*)NULL, environ);
  if (!strcmp(way, "execvpe")) execvpe(path, all, environ);
  if (!strcmp(way, "execveat")) execveat(AT_FDCWD, path, all, environ, 0);
  return count;
}
"""


@pytest.mark.parametrize("way", ["execl", "execlp", "execle", "execvpe", "execveat"])
def test_every_exec_passes_its_words_on(programs, tmp_path, way):
    source = tmp_path / "listed.c"
    source.write_text(LISTED)
    subprocess.run(["cc", "-D_GNU_SOURCE", "-o", tmp_path / "listed", source], check=True)
    shown = script(tmp_path / "shown", "#!/bin/sh\necho $# $* $TESSALINE_BOARD\n")
    ended = run(tmp_path / "listed", way, shown, options=["--model", "K3920"])
    assert (ended.stdout, ended.stderr) == ("2 1 2 K3920\n", "")
    ended = run(tmp_path / "listed", way, programs / "static")
    assert ended.returncode == 0 and "it is statically linked" in ended.stderr


def test_a_lost_environment_is_said(programs):
    dynamic = programs / "dynamic"
    assert "TESSALINE_BOARD is not in its environment" in run("env", "-i", dynamic).stderr
    assert "LD_PRELOAD is not in its environment" in run("env", "-u", "LD_PRELOAD", dynamic).stderr
    assert run("env", "-i", dynamic, options=["--strict"]).returncode == 126
    assert run("env", "TESSALINE_BOARD=", dynamic).stderr == ""  # on purpose
    assert run("env", "-i", "no-such-program").stderr.count("tessaline-board:") == 0


def transcripts(folder):
    return {re.sub(r"-\d+", "-N", path.name): path.read_text(errors="surrogateescape")
            for path in folder.iterdir()}


def test_every_process_has_its_own_transcript(tmp_path):
    read = f"cat {TEMPERATURE} >/dev/null"
    run("sh", "-c", f"{read}; sleep 0; read x <{TEMPERATURE}",
        options=["--transcript", "log.txt"], cwd=tmp_path)
    found = transcripts(tmp_path)
    assert sorted(found) == ["log.cat-N.txt", "log.txt"]
    assert found["log.cat-N.txt"].startswith("iio read in_temp0_raw")
    assert found["log.txt"].startswith("iio read in_temp0_raw")


@pytest.mark.parametrize("end", ["os._exit(0)", "os.execvp('true', ['true'])",
                                 f"os.execvp('cat', ['cat', '{TEMPERATURE}'])"])
def test_a_transcript_survives_exec_and_a_quick_end(tmp_path, end):
    used = f"import os; open('{TEMPERATURE}').read(); os.access('/dev/i2c-0', 0); "
    run(sys.executable, "-c", used + end, options=["--transcript", "log.txt"], cwd=tmp_path)
    found = transcripts(tmp_path)
    assert list(found) == ["log.txt"]
    assert found["log.txt"].count("iio read in_temp0_raw") == (2 if "cat" in end else 1)


def test_a_forked_child_writes_only_what_it_did(tmp_path):
    program = (f"import os; read = lambda: open('{TEMPERATURE}').read()\nread()\n"
               "if os.fork() == 0: read(); read(); os._exit(0)\n"
               "os.wait()\nif os.fork() == 0: os._exit(0)\nos.wait()\n")
    run(sys.executable, "-c", program, options=["--transcript", "log.txt"], cwd=tmp_path)
    found = transcripts(tmp_path)
    assert len(found) == 2
    assert found.pop("log.txt").count("iio") == 1
    assert found.popitem()[1].count("iio") == 2


def test_without_the_command_the_first_process_writes_the_file(tmp_path):
    subprocess.run(["sh", "-c", f"cat {TEMPERATURE}; read x <{TEMPERATURE}"], cwd=tmp_path,
                   stdout=subprocess.DEVNULL, check=True,
                   env=environment(TESSALINE_BOARD="K3610", LD_PRELOAD=str(LIBRARY),
                                   TESSALINE_BOARD_TRANSCRIPT="log.txt"))
    assert sorted(transcripts(tmp_path)) == ["log.cat-N.txt", "log.txt"]


def test_any_bytes_fit_into_a_transcript(tmp_path):
    program = ("import os\ntry: os.open(b'/sys/class/gpio/../gpio/value\\xff', 0)\n"
               "except OSError: pass\n"
               "f = os.open('/sys/class/gpio/export', os.O_WRONLY)\n"
               "try: os.write(f, b'9\\xff7')\nexcept OSError: pass\n")
    run(sys.executable, "-c", program, options=["--transcript", "log.json"], cwd=tmp_path)
    lines = (tmp_path / "log.json").read_bytes().decode().splitlines()
    assert any("gpio" in json.loads(line)["device"] for line in lines)
