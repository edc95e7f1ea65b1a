#!/usr/bin/env python3
"""Measures the steps of a flight of stairs on the virtual board, which are 3 mm each."""

from __future__ import annotations

import numpy as np
import numpy.typing as npt
import tessaline

JUMP_MM = 1.0
SHORTEST_TREAD = 20  # columns


def treads(profiles: tessaline.Profiles) -> npt.NDArray[np.float64]:
    """Heights of the treads from left to right, mm."""
    height = np.nanmean(profiles.grid("z"), axis=0)
    jumps = np.flatnonzero(np.abs(np.diff(height)) > JUMP_MM) + 1
    parts = [part for part in np.split(height, jumps) if len(part) >= SHORTEST_TREAD]
    return np.array([np.median(part) for part in parts], dtype=np.float64)


def main() -> None:
    """Takes 50 profiles and prints the steps."""
    with tessaline.Sensor("K3610", virtual=True, scene="stairs") as sensor:
        heights = treads(sensor.profiles(50))
    for left, right in zip(heights, heights[1:]):
        print(f"from {left:z6.3f} mm to {right:z6.3f} mm: {right - left:+.3f} mm")


if __name__ == "__main__":
    main()
