"""A notebook: a cell that runs twice, and one that is interrupted."""

from __future__ import annotations

import asyncio
import os

import pytest

nbclient = pytest.importorskip("nbclient", reason="python3-nbclient is not installed")
pytest.importorskip("ipykernel", reason="python3-ipykernel is not installed")
import nbformat.v4

SCAN = """
import tessaline
with tessaline.Sensor("K3610", virtual=True, sleep_factor=0) as sensor:
    print(len(sensor.profiles(20)), sensor.reopened)
"""
FOR_EVER = """
sensor = tessaline.Sensor("K3610", virtual=True, sleep_factor=0)
for buf in sensor.strips():
    pass
"""
AFTERWARDS = """
print("laser", sensor.board.line(907))
sensor.close()
"""


async def run() -> list[str]:
    cells = [nbformat.v4.new_code_cell(text) for text in (SCAN, SCAN, FOR_EVER, AFTERWARDS, SCAN)]
    notebook = nbformat.v4.new_notebook(cells=cells)
    client = nbclient.NotebookClient(notebook, timeout=60, allow_errors=True)
    async with client.async_setup_kernel(env=os.environ):
        for index, cell in enumerate(cells):
            running = asyncio.ensure_future(client.async_execute_cell(cell, index))
            if cell.source == FOR_EVER:
                await asyncio.sleep(3)
                await client.km.interrupt_kernel()
            await running
    return ["".join(out.get("text", out.get("ename", "")) for out in cell.outputs)
            for cell in cells]


def test_cells_run_twice_and_can_be_interrupted() -> None:
    assert asyncio.run(run()) == [
        "20 False\n", "20 True\n", "KeyboardInterrupt", "laser 0\n", "20 True\n"
    ]
