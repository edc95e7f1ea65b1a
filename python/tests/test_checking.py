"""The self-check, by the command."""

from __future__ import annotations

import pathlib
import stat

import pytest
from tessaline.checking import Verdict, check
from tessaline.errors import RefusedError, StartUpError


def test_a_virtual_board_passes(command: str) -> None:
    result = check("K3610", virtual=True, command=command)
    assert result and result.virtual and result.model == "K3610"
    assert result.failures == ()
    verdicts = [step.verdict for step in result.steps]
    assert verdicts.count(Verdict.PASS) == result.passed > 10
    assert verdicts.count(Verdict.NOT_APPLICABLE) == result.not_applicable
    assert result.steps[0].title in str(result)


def test_a_machine_without_a_board_fails(command: str) -> None:
    result = check("K3610", passive=True, command=command)
    assert not result and not result.virtual
    assert result.failed == len(result.failures) > 0
    assert all(step.advice for step in result.failures)


def test_an_unknown_model_is_refused_in_the_commands_words(command: str) -> None:
    with pytest.raises(RefusedError, match='unknown model "K361"; the nearest is K3610'):
        check("K361", virtual=True, command=command)
    with pytest.raises(TypeError):
        check(3610, command=command)  # type: ignore[arg-type]


def test_a_missing_command_is_an_error(tmp_path: pathlib.Path) -> None:
    with pytest.raises(StartUpError, match="was not found; install the package tessaline-tools"):
        check("K3610", command=tmp_path / "tessaline")
    (tmp_path / "tessaline").write_text("no program")
    with pytest.raises(StartUpError, match="cannot be executed"):
        check("K3610", command=tmp_path / "tessaline")


def test_a_command_that_hangs_or_breaks_is_an_error(tmp_path: pathlib.Path) -> None:
    program = tmp_path / "tessaline"

    def write(lines: str) -> None:
        program.write_text("#!/bin/sh\n" + lines)
        program.chmod(stat.S_IRWXU)

    write("exec sleep 60\n")
    with pytest.raises(StartUpError, match="ended after 0.2 s"):
        check("K3610", command=program, timeout=0.2)
    write("echo broken >&2; exit 3\n")
    with pytest.raises(StartUpError, match="broken"):
        check("K3610", command=program)
    write("exit 3\n")
    with pytest.raises(StartUpError, match="ended with status 3"):
        check("K3610", command=program)
