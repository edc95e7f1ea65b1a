"""The self-check of a board."""

from __future__ import annotations

import enum
import json
import os
import subprocess
from dataclasses import dataclass
from typing import Any

from . import _command
from .errors import RefusedError, StartUpError, TessalineError

__all__ = ["CheckResult", "CheckStep", "Verdict", "check"]

_USAGE = 2
_ADVICE_INSTALL = "install the package tessaline-tools, or give the command's path as command=..."


class Verdict(enum.Enum):
    """What came of a step."""

    PASS = "pass"
    FAIL = "fail"
    NOT_APPLICABLE = "not applicable"
    SKIPPED = "skipped"


@dataclass(frozen=True)
class CheckStep:
    """One step of the self-check.

    Attributes:
        id: for programs, such as "eeprom.low".
        title: for people.
        verdict: see Verdict.
        detail: what was seen.
        advice: what to do if it failed; else empty.
    """

    id: str
    title: str
    verdict: Verdict
    detail: str
    advice: str


@dataclass(frozen=True)
class CheckResult:
    """What the self-check found. It is true when no step failed.

    Attributes:
        model: the product.
        virtual: whether it was a virtual board.
        passed: number of steps that passed.
        failed: number of steps that failed.
        skipped: number of steps left out, because an earlier one failed.
        not_applicable: number of steps that the product does not have.
        interrupted: whether the check was ended early.
        steps: all of them, in their order.
    """

    model: str
    virtual: bool
    passed: int
    failed: int
    skipped: int
    not_applicable: int
    interrupted: bool
    steps: tuple[CheckStep, ...]

    def __bool__(self) -> bool:
        return self.failed == 0 and not self.interrupted

    @property
    def failures(self) -> tuple[CheckStep, ...]:
        """The steps that failed."""
        return tuple(step for step in self.steps if step.verdict is Verdict.FAIL)

    def __str__(self) -> str:
        lines = [
            f"{step.verdict.value:<14} {step.title:<34} {step.detail}"
            + (f"\n               -> {step.advice}" if step.advice else "")
            for step in self.steps
        ]
        return "\n".join(lines)


def check(
    model: str,
    *,
    virtual: bool = False,
    laser: bool = False,
    passive: bool = False,
    timeout: float = 120.0,
    command: str | os.PathLike[str] | None = None,
) -> CheckResult:
    """Checks a board step by step, as ``tessaline check`` does.

    It runs in a process of its own, because it starts the device anew, which a process can do only
    once. So no sensor must be open on a real board meanwhile, in this process or another.

    Args:
        model: model code.
        virtual: checks a virtual board of this model.
        laser: also drives the laser, and looks for its line.
        passive: only the steps that change nothing on the board.
        timeout: seconds after which the check is ended.
        command: path of the command; without a folder it is looked for in PATH. None: the one that
            belongs to this package's libraries.

    Raises:
        StartUpError: the command is not there, cannot reach the device, or took too long.
        RefusedError: the command refuses the model.

    Example:
        >>> result = tessaline.check("K3610", virtual=True)
        >>> assert result, result.failures
    """
    if not isinstance(model, str):
        raise TypeError(f"model must be a string, not {type(model).__name__} ({model!r})")
    board = "--virtual" if virtual else "--model"
    if command is None:
        command = _command.find(StartUpError)
    arguments = [os.fspath(command), "check", "--json", board, model]
    arguments += ["--laser"] if laser else []
    arguments += ["--passive"] if passive else []
    try:
        run = subprocess.run(
            arguments,
            capture_output=True,
            text=True,
            errors="replace",
            timeout=timeout,
            check=False,
            env=_environment(),
        )
    except FileNotFoundError:
        raise StartUpError(f"the command {command} was not found", _ADVICE_INSTALL) from None
    except PermissionError:
        raise StartUpError(f"{command} cannot be executed", _ADVICE_INSTALL) from None
    except subprocess.TimeoutExpired:
        raise StartUpError(
            f"the check was ended after {timeout:g} s",
            '"tessaline check" in a terminal shows how far it comes',
        ) from None
    return _result(run.returncode, run.stdout, run.stderr)


def _environment() -> dict[str, str]:
    """This process's board is not the command's."""
    return {
        name: value
        for name, value in os.environ.items()
        if name not in ("TESSALINE_MODEL", "TESSALINE_BOARD")
    }


def _result(status: int, output: str, complaint: str) -> CheckResult:
    try:
        found = json.loads(output)
    except ValueError:
        found = None
    if not isinstance(found, dict) or "steps" not in found:
        raise _failure(status, found if isinstance(found, dict) else {}, complaint)
    return CheckResult(
        model=found["model"],
        virtual=found.get("board") == "virtual",
        passed=found["passed"],
        failed=found["failed"],
        skipped=found["skipped"],
        not_applicable=found["not_applicable"],
        interrupted=found["interrupted"],
        steps=tuple(
            CheckStep(
                one["id"], one["title"], Verdict(one["verdict"]), one["detail"], one["advice"]
            )
            for one in found["steps"]
        ),
    )


def _failure(status: int, found: dict[str, Any], complaint: str) -> TessalineError:
    kind: type[TessalineError] = RefusedError if status == _USAGE else StartUpError
    if "error" in found:
        return kind(found["error"], found.get("advice", ""))
    last = complaint.strip().splitlines()[-1:] or [f"the command ended with status {status}"]
    return kind(last[0], 'try "tessaline check" in a terminal')
