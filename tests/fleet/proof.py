"""Proves that a fleet loses no frame unnamed: sensors, a cluster and a subscriber, and what befalls
them. Every frame that an application was handed has to be in the recording once, or in a gap.

    proof.py BUILD [--minutes 10] [--sensors 16] [--seed N] [--repeat K]
"""

from __future__ import annotations

import argparse
import random
import shutil
import sys
import tempfile
import time
from pathlib import Path

import accounting
from accounting import Account
from cluster import Cluster
from faults import Faults
from members import Programs, Sensor, Subscriber
from server import Server, wait_until

SHORT_MINUTES = 2       # less has short faults
HEADS_OF_A_LINE = 4
IMAGES_EVERY = 8        # sensors; one of so many sends images
IMAGE_SPACING = 20      # times that of strips
START_SECONDS = 60
DRAIN_SECONDS = 120
PASSED_OVER_SECONDS = 20  # after which a subscriber has looked for what is not delivered


def names(count: int) -> list[str]:
    return [f"line{1 + number // HEADS_OF_A_LINE}.head{1 + number % HEADS_OF_A_LINE}"
            for number in range(count)]


def led(server: Server, details: list[dict]) -> list[dict]:
    """Those of the streams or consumers that the server leads: it knows most about them."""
    return [detail for detail in details if detail.get("cluster", {}).get("leader") == server.name]


def waiting(cluster: Cluster) -> dict[str, int]:
    """Messages that the subscriber has not acknowledged, by stream."""
    return {stream["name"]: consumer["num_pending"] + consumer["num_ack_pending"]
            for server in cluster.servers for stream in server.streams()
            for consumer in led(server, stream.get("consumer_detail", []))}


class Proof:
    def __init__(self, programs: Programs, options: argparse.Namespace, seed: int, folder: Path):
        self._options = options
        self._seed = seed
        self._folder = folder
        self._programs = programs
        self._sensors: list[Sensor] = []
        self._complaints: list[str] = []

    def run(self) -> bool:
        with Cluster(self._folder) as cluster:
            subscriber = Subscriber(self._programs, cluster.urls, self._folder)
            try:
                self._start(cluster, subscriber)
                faults = Faults(cluster, self._sensors, subscriber, seed=self._seed,
                                seconds=self._options.minutes * 60,
                                short=self._options.minutes < SHORT_MINUTES)
                done = faults.run()
                self._end(cluster, subscriber)
            finally:
                for sensor in self._sensors:
                    sensor.abandon()
                subscriber.abandon()
        accounts = accounting.account([subscriber.recording],
                                      {sensor.name: sensor.logs for sensor in self._sensors},
                                      {log for sensor in self._sensors for log in sensor.killed})
        return self._judge(accounts, done, faults.skipped)

    def _start(self, cluster: Cluster, subscriber: Subscriber) -> None:
        subscriber.start()
        subscriber.wait_for_start()
        for number, name in enumerate(names(self._options.sensors)):
            images = (number % IMAGES_EVERY == IMAGES_EVERY - 1 or
                      number == self._options.sensors - 1)
            spacing_us = self._options.spacing * 1000 * (IMAGE_SPACING if images else 1)
            self._sensors.append(Sensor(
                name, self._programs, cluster.urls, self._folder, spacing_us=spacing_us,
                images=images, store=number % 2 == 1))
        for sensor in self._sensors:
            sensor.start()
        wait_until(lambda: all(sensor.delivers() for sensor in self._sensors), START_SECONDS,
                   "frames of all sensors")
        wait_until(lambda: len(waiting(cluster)) >= len(self._sensors), START_SECONDS,
                   "a stream of each sensor")
        print(f"{len(self._sensors)} sensors, three servers, seed {self._seed}, {self._folder}",
              flush=True)

    def _end(self, cluster: Cluster, subscriber: Subscriber) -> None:
        for sensor in self._sensors:
            sensor.begin_end()
        for sensor in self._sensors:
            if (status := sensor.end()) != 0:
                self._complaints.append(f"the publisher of {sensor.name} ended with {status}")
        try:
            wait_until(lambda: self._drained(waiting(cluster)), DRAIN_SECONDS,
                       "everything stored")
        except TimeoutError:
            left = {name: count for name, count in waiting(cluster).items() if count}
            self._complaints.append(f"the subscriber has not acknowledged {left}")
        time.sleep(PASSED_OVER_SECONDS)
        if (status := subscriber.end()) != 0:
            self._complaints.append(f"the subscriber ended with {status}")

    def _drained(self, left: dict[str, int]) -> bool:
        """Whether all streams have a leader who says that nothing is left."""
        return len(left) == len(self._sensors) and not any(left.values())

    def _judge(self, accounts: dict[str, Account], done: dict[str, int],
               skipped: dict[str, str]) -> bool:
        print()
        for kind, count in done.items():
            print(f"{count:4}  {kind}")
        for kind, reason in skipped.items():
            print(f"   -  {kind}: SKIPPED, {reason}")
        print(f"\n{accounting.table(accounts)}\n")
        self._complaints += [f"nothing of {sensor.name} was stored" for sensor in self._sensors
                             if accounts[sensor.name].delivered == 0]
        self._complaints += [f"not once: {kind}" for kind, count in done.items() if count == 0]
        for complaint in self._complaints:
            print(complaint)
        total = Account()
        for each in accounts.values():
            total.add(each)
        whole = total.faults() == 0 and not self._complaints
        without = f", WITHOUT {' and '.join(skipped)}" if skipped else ""
        print(f"{'whole' if whole else 'NOT WHOLE'}{without}: seed {self._seed}, "
              f"{sum(done.values())} faults, {total.truth} frames, {total.delivered} stored, "
              f"{total.named} named, {total.open_ended} in gaps of killed publishers, "
              f"{total.duplicates} duplicates, {total.disordered} in disorder, "
              f"{total.unaccounted} unaccounted", flush=True)
        return whole


def parse(words: list[str]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(description="Proves that a fleet loses no frame unnamed")
    parser.add_argument("build", type=Path, help="folder with the programs")
    parser.add_argument("--minutes", type=float, default=10)
    parser.add_argument("--sensors", type=int, default=16)
    parser.add_argument("--spacing", type=int, default=100, help="milliseconds between strips")
    parser.add_argument("--seed", type=int, help="of the order of faults (default: a new one)")
    parser.add_argument("--repeat", type=int, default=1, help="times, each with another seed")
    parser.add_argument("--keep", action="store_true", help="logs and recordings")
    return parser.parse_args(words)


def main(words: list[str]) -> int:
    options = parse(words)
    seed = random.randrange(1 << 31) if options.seed is None else options.seed
    failed = 0
    begin = time.monotonic()
    for number in range(options.repeat):
        folder = Path(tempfile.mkdtemp(prefix="fleet-proof-"))
        whole = Proof(Programs(options.build.absolute()), options, seed + number, folder).run()
        failed += not whole
        if whole and not options.keep:
            shutil.rmtree(folder, ignore_errors=True)
    if options.repeat > 1:
        print(f"{options.repeat - failed} of {options.repeat} whole, "
              f"{time.monotonic() - begin:.0f} s")
    return int(failed > 0)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
