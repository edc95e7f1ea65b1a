"""Every setting and reading of the device library, in groups by subject.

Sensor has one of each group: ``sensor.trigger``, ``sensor.laser``, ... Settings are attributes.
Assigning checks the value first; what does not fit is refused before anything is touched, and never
spills into a neighbouring field. What the library refuses is RefusedError with its own words. A
setting that the library can only write raises WriteOnlyError when it is read, and says which
register holds it.
"""

from __future__ import annotations

from .._calls import Calls
from ..registers import Field, Register, Registers
from .image_sensor import Direction, DriveMode, ImageSensor
from .outputs import DaOutput, Output, Outputs
from .peripherals import Colour, Laser, StatusLight, Temperatures
from .processing import Enhancement, Erosion, Processing
from .statistics import CaptureStatistics, Statistics
from .store import Store
from .strips import Extraction, Reconstruction
from .trigger import Encoder, Sync, Trigger, TriggerMode

__all__ = [
    "CaptureStatistics",
    "Colour",
    "DaOutput",
    "Direction",
    "DriveMode",
    "Encoder",
    "Enhancement",
    "Erosion",
    "Extraction",
    "Field",
    "Groups",
    "ImageSensor",
    "Laser",
    "Output",
    "Outputs",
    "Processing",
    "Reconstruction",
    "Register",
    "Registers",
    "Statistics",
    "StatusLight",
    "Store",
    "Sync",
    "Temperatures",
    "Trigger",
    "TriggerMode",
]


class Groups:
    """One of each group, for a started device. Sensor is one.

    Args:
        calls: the device's functions.
        model: its model code; must be one of a product that is made.

    Attributes:
        trigger: when frames are taken.
        encoder: the encoder.
        sync: this device in a synchronised group.
        outputs: the two digital outputs, ``outputs[0]`` and ``outputs[1]``.
        da_output: the analogue output.
        laser: on, off, power.
        status_light: its colour.
        temperatures: of the processor.
        image_sensor: exposure, gain, region, readout.
        extraction: how the laser line is found.
        reconstruction: how points are computed.
        processing: corrections and filters.
        statistics: what became of every frame.
        store: 512 bytes that survive power-down.
        registers: the FPGA's registers by name.
    """

    def __init__(self, calls: Calls, model: str) -> None:
        self.registers = registers = Registers(calls, model)
        self.trigger = Trigger(calls, registers)
        self.encoder = Encoder(calls, registers)
        self.sync = Sync(calls, registers)
        self.outputs = Outputs(calls, registers)
        self.da_output = DaOutput(calls, registers)
        self.laser = Laser(calls, registers)
        self.status_light = StatusLight(calls, registers)
        self.temperatures = Temperatures(calls, registers)
        self.image_sensor = ImageSensor(calls, registers)
        self.extraction = Extraction(calls, registers)
        self.reconstruction = Reconstruction(calls, registers)
        self.processing = Processing(calls, registers)
        self.statistics = Statistics(calls, registers)
        self.store = Store(calls, registers)
