#!/usr/bin/env python3
"""Takes profiles of what moves below the laser line, and draws their heights in millimetres.

    height_map.py [--model K3610] [--profiles 750] [--output height_map.png] [--hardware]
"""

from __future__ import annotations

import argparse

import matplotlib
import numpy as np
import numpy.typing as npt
import tessaline

matplotlib.use("Agg")  # draws into a file, without a screen
from matplotlib import pyplot

CELL_MM = 0.1


def edges(positions: npt.NDArray[np.float64]) -> npt.NDArray[np.float64]:
    """Borders of as many equal cells as there are positions, with one position in each."""
    half = (positions[-1] - positions[0]) / (len(positions) - 1) / 2
    return np.linspace(positions[0] - half, positions[-1] + half, len(positions) + 1)


def draw(profiles: tessaline.Profiles, path: str) -> None:
    """Draws the mean height of the points in each cell: movement to the right, x upwards."""
    x, y, z = profiles.xyz.T
    along = edges(profiles.y)
    across = np.arange(x.min(), x.max() + CELL_MM, CELL_MM)
    total, _, _ = np.histogram2d(x, y, bins=(across, along), weights=z)
    count, _, _ = np.histogram2d(x, y, bins=(across, along))
    height = np.divide(total, count, out=np.full_like(total, np.nan), where=count > 0)

    figure, axes = pyplot.subplots(figsize=(9, 4.5), layout="constrained")
    extent = (along[0], along[-1], across[0], across[-1])
    image = axes.imshow(height, origin="lower", extent=extent, aspect="equal", cmap="viridis")
    axes.set_xlabel("y, along the movement (mm)")
    axes.set_ylabel("x, along the laser line (mm)")
    axes.set_title(f"{len(profiles)} profiles, {len(z)} points")
    figure.colorbar(image, ax=axes, label="height (mm)", shrink=0.8)
    start, low = along[-1] - 13, across[0] + 3
    axes.plot([start, start + 10], [low, low], color="white", linewidth=3)
    axes.text(start + 5, low + 1, "10 mm", color="white", ha="center", va="bottom")
    figure.savefig(path, dpi=100)


def main() -> None:
    """Reads the command line."""
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--model", default="K3610")
    parser.add_argument("--profiles", type=int, default=750)
    parser.add_argument("--output", default="height_map.png")
    parser.add_argument("--hardware", action="store_true", help="not the virtual board")
    parser.add_argument("--counts-per-mm", type=float, help="of the encoder")
    chosen = parser.parse_args()
    with tessaline.Sensor(chosen.model, virtual=not chosen.hardware) as sensor:
        sensor.configure(spacing_us=4000)
        profiles = sensor.profiles(chosen.profiles, counts_per_mm=chosen.counts_per_mm)
    draw(profiles, chosen.output)
    print(f"{chosen.output}: {profiles}")


if __name__ == "__main__":
    main()
