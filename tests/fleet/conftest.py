"""What the tests of the commands share: servers and programs that are always ended."""

from __future__ import annotations

import shutil
from pathlib import Path

import accounting
import pytest
import recording
import truth_log
from commands import TESSALINE, TRUTH, Publisher, Running, json_of
from hub import Hub


class Fleet:
    """A server and what uses it, in a folder of their own."""

    def __init__(self, folder: Path):
        self.folder = folder
        self.recording = folder / "all.db3"
        self._hubs: list[Hub] = []
        self._running: list[Running] = []
        self._publishers: list[Publisher] = []

    def hub(self, more: str = "", **options) -> Hub:
        return self.adopt(Hub(self.folder, more, **options)).start()

    def adopt(self, hub: Hub) -> Hub:
        """One that is started later."""
        self._hubs.append(hub)
        return hub

    def publish(self, name: str, url: str, *options: object, **more) -> Publisher:
        """With the application that notes what it gets."""
        number = sum(each.name == name for each in self._publishers) + 1
        publisher = Publisher(self.folder, name, url, number, *options, **more)
        self._publishers.append(publisher)
        self._running.append(publisher)
        return publisher

    def start(self, *words: object, url: str = "", **variables: str) -> Running:
        one = Running(self.folder / f"{words[0]}.{len(self._running)}.log", *words, url=url,
                      **variables)
        self._running.append(one)
        return one

    def subscribe(self, url: str, *options: object, pattern: str = ">") -> Running:
        return self.start("subscribe", pattern, "-o", self.recording, *options, url=url)

    def store(self, url: str, *options: object, file: Path | None = None,
              pattern: str = ">", status: int = 0) -> dict:
        """All that the server has."""
        return json_of("subscribe", pattern, "-o", file or self.recording, "--once", *options,
                       url=url, status=status)

    def account(self, *recordings: Path) -> dict[str, accounting.Account]:
        logs: dict[str, list[Path]] = {}
        for each in self._publishers:
            if each.truth.exists():
                logs.setdefault(each.name, []).append(each.truth)
        return accounting.account(recordings or [self.recording], logs)

    def require_all(self, *recordings: Path, named: bool = False) -> accounting.Account:
        """Every frame is stored once; `named`: or named as missing."""
        total = accounting.Account()
        accounts = self.account(*recordings)
        for each in accounts.values():
            total.add(each)
        assert total.truth > 0
        assert total.faults() == 0, accounting.table(accounts)
        assert named or total.named + total.open_ended == 0, accounting.table(accounts)
        return total

    def require_every_image(self, publisher: Publisher) -> int:
        """Each is stored once or named by a gap, also without the note about the run, which is
        among the oldest. Returns how many are named."""
        handed = truth_log.read(publisher.truth).frames["images"]
        stored, named = [], []
        for _, found in recording.read(self.recording):
            if isinstance(found, recording.Frame):
                stored.append(found.id)
                assert handed.get(found.id, found.crc) == found.crc
            elif isinstance(found, recording.Missing) and found.kind == "images":
                named += range(found.first, found.last + 1)
                assert found.count == found.last - found.first + 1
        assert stored and sorted(stored) == stored
        assert sorted(stored + named) == list(range(1, len(stored) + len(named) + 1))
        assert set(handed) <= {*stored, *named}
        return len(named)

    def end(self) -> None:
        for one in self._running:
            one.kill()
        for hub in self._hubs:
            hub.kill()


@pytest.fixture
def fleet(tmp_path):
    for program in ("nats-server", TRUTH, f"{TESSALINE}-fleet"):
        if shutil.which(program) is None:
            pytest.skip(f"there is no {program}")
    fleet = Fleet(tmp_path)
    yield fleet
    fleet.end()
