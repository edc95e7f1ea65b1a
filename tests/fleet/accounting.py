"""Holds what applications were handed against what a subscriber has stored.

Every frame has to be stored once, in order and with the same bytes, or a gap has to name it.

    accounting.py RECORDING LOG...    SENSOR.anything.truth are the logs of a sensor
"""

from __future__ import annotations

import collections
import dataclasses
import json
import sys
from collections.abc import Iterable
from pathlib import Path

import recording
import truth_log
from recording import Frame, Missing, Note
from truth_log import Truth

UNEXPLAINED = "unknown"  # the reason of a gap that the subscriber found and nobody had named


@dataclasses.dataclass
class Account:
    """Frames of one sensor."""
    truth: int = 0        # that applications were handed
    delivered: int = 0    # stored for the first time
    named: int = 0        # not stored, and a gap says so
    duplicates: int = 0   # stored again
    unaccounted: int = 0  # neither stored nor named
    disordered: int = 0   # stored behind later ones
    changed: int = 0      # stored with other bytes
    invented: int = 0     # stored, and no application was handed them
    both: int = 0         # stored, and also named as missing
    unwitnessed: int = 0  # stored; the application was killed before it could note them
    open_ended: int = 0   # not stored, and behind the last one of a publisher that was killed
    unexplained: int = 0  # gaps that a subscriber cannot explain

    def faults(self) -> int:
        return (self.duplicates + self.unaccounted + self.disordered + self.changed +
                self.invented + self.both + self.unexplained)

    def add(self, other: "Account") -> None:
        for field in dataclasses.fields(self):
            setattr(self, field.name, getattr(self, field.name) + getattr(other, field.name))


@dataclasses.dataclass
class Run:
    """What is stored of one publisher's life."""
    id: str
    notes: str = ""  # about its application
    frames: list[Frame] = dataclasses.field(default_factory=list)


class Stored:
    """What is stored of one sensor."""

    def __init__(self):
        self.runs: dict[str, Run] = {}  # in the order in which they are mentioned
        self.missing: list[Missing] = []
        self._current: Run | None = None

    def _run(self, number: str) -> Run:
        return self.runs.setdefault(number, Run(number))

    def take(self, found: Frame | Note | Missing) -> None:
        if isinstance(found, Missing):
            self._run(found.run)
            self.missing.append(found)
        elif isinstance(found, Note):
            if "run" in found.facts:
                self._current = self._run(found.facts["run"])
            if self._current is not None:
                self._current.notes += json.dumps(found.facts, ensure_ascii=False)
        elif self._current is None:
            raise ValueError("a frame in front of the note that begins its run")
        else:
            self._current.frames.append(found)


def match(stored: Stored, truths: list[Truth]) -> list[tuple[Run | None, Truth | None]]:
    """Runs and the logs of their applications. The notes about a run have the application's command
    line, and with it the log's name. A publisher may have ended before they were sent: its run is
    known from a gap only, and has the log that is left over, if that is clear."""
    pairs: list[tuple[Run | None, Truth | None]] = []
    runs = []
    left = list(truths)
    for run in stored.runs.values():
        log = next((truth for truth in left if truth.path in run.notes), None)
        if log is not None:
            left.remove(log)
            pairs.append((run, log))
        else:
            runs.append(run)
    if len(runs) == len(left):
        return pairs + list(zip(runs, left))
    return pairs + [(run, None) for run in runs] + [(None, truth) for truth in left]


def _account_kind(kind: str, run: Run | None, truth: Truth | None,
                  gaps: list[Missing], killed: bool) -> Account:
    account = Account()
    handed = truth.frames[kind] if truth else {}
    account.truth = len(handed)
    # What is copied for the publisher before the application has it, at most.
    unnoted = range(max(handed, default=0) + 1,
                    max(handed, default=0) + 1 + (truth.largest_delivery.get(kind, 0)
                                                  if truth else 0))
    stored = set()
    newest = 0
    for frame in run.frames if run else []:
        if frame.kind != kind:
            continue
        if frame.id in stored:
            account.duplicates += 1
            continue
        account.disordered += frame.id < newest
        newest = max(newest, frame.id)
        stored.add(frame.id)
        account.delivered += 1
        if frame.id in handed:
            account.changed += frame.crc != handed[frame.id]
        elif frame.id in unnoted:
            account.unwitnessed += 1
        else:
            account.invented += 1

    lost = sorted(set(handed) - stored)
    # Ids that nobody was handed have to be named, too.
    there = set(handed) | stored
    jumped = set(range(min(there, default=1), max(there, default=0))) - there
    for gap in sorted(gaps, key=lambda gap: (gap.last is None, gap.first == 0)):
        if gap.kind != kind:
            continue
        if gap.reason == UNEXPLAINED:
            account.unexplained += 1
            continue
        if gap.last is None:
            # Nothing of that run may come behind it.
            if not killed or newest >= gap.first:
                account.both += 1
                continue
            behind = {number for number in lost if number >= gap.first}
            account.open_ended += len(behind)
            lost = sorted(set(lost) - behind)
            continue
        if gap.reason == "device":
            jumped -= set(range(gap.first, gap.last + 1))
            continue  # the application never had them
        # One without ids has a count only.
        inside = range(gap.first, gap.last + 1) if gap.first else range(1 << 63)
        named = [number for number in lost if number in inside][:gap.count]
        unseen = sum(number in inside and number not in stored for number in unnoted)
        fell = [number for number in sorted(jumped) if number in inside]
        jumped -= set(fell[:gap.count - len(named)])
        account.both += max(0, gap.count - len(named) - unseen - len(fell))
        account.named += len(named)
        lost = sorted(set(lost) - set(named))
    account.unaccounted = len(lost) + len(jumped)
    return account


def account_sensor(stored: Stored, truths: list[Truth],
                   killed: set[Path] | None = None) -> Account:
    total = Account()
    for run, truth in match(stored, truths):
        gaps = [gap for gap in stored.missing if run is not None and gap.run == run.id]
        for kind in truth_log.KINDS.values():
            ended = killed is None or truth is None or Path(truth.path) in killed
            total.add(_account_kind(kind, run, truth, gaps, ended))
        if truth is not None and truth.disordered:
            raise ValueError(f"{truth.path}: the application itself got frames in disorder")
    return total


def account(recordings: Iterable[Path], logs: dict[str, list[Path]],
            killed: set[Path] | None = None) -> dict[str, Account]:
    """By sensor. `logs`: of each sensor's applications, in the order of their starts. `killed`:
    those whose publisher was killed; none: all may have been."""
    stored: dict[str, Stored] = collections.defaultdict(Stored)
    for path in recordings:
        for sensor, found in recording.read(path):
            stored[sensor].take(found)
    # An application that was killed before it began has no log.
    truths = {sensor: [truth_log.read(log) for log in paths if log.exists()]
              for sensor, paths in logs.items()}
    return {sensor: account_sensor(stored[sensor], truths.get(sensor, []), killed)
            for sensor in sorted(set(logs) | set(stored))}


COLUMNS = ("truth", "delivered", "named", "open_ended", "unwitnessed", "duplicates",
           "unaccounted", "disordered", "changed", "invented", "both", "unexplained")


def table(accounts: dict[str, Account]) -> str:
    total = Account()
    width = max([len("sensor"), *map(len, accounts)])
    lines = [f"{'sensor':{width}}  " + "  ".join(f"{column:>11}" for column in COLUMNS)]
    for sensor, each in accounts.items():
        total.add(each)
        lines.append(_row(sensor, each, width))
    return "\n".join([*lines, _row("all", total, width)])


def _row(name: str, each: Account, width: int) -> str:
    return f"{name:{width}}  " + "  ".join(f"{getattr(each, column):>11}" for column in COLUMNS)


def main(words: list[str]) -> int:
    logs = collections.defaultdict(list)
    for path in sorted(map(Path, words[1:]), key=lambda path: path.stat().st_mtime):
        logs[path.name.rsplit(".", 2)[0]].append(path)
    accounts = account([Path(words[0])], logs)
    print(table(accounts))
    return int(any(each.faults() for each in accounts.values()))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
