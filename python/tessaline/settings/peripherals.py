"""Laser, status light and temperatures."""

from __future__ import annotations

import enum

from ._group import Group, Reading, one_of, real, whole, write_only

ABSOLUTE_ZERO = -270.0


class Laser(Group):
    """The laser. Devices: two lines of sysfs, and the potentiometer on I2C. Threads: one."""

    def on(self) -> None:
        """Switches the laser on, and waits 50 ms for steady light.

        It stays on until off(), or until the sensor is closed.

        Raises:
            RefusedError: a line cannot be driven. The other line may be on then; switch the laser
                off.
        """
        self._calls.set("OpenLaser")

    def off(self) -> None:
        """Switches the laser off.

        Raises:
            RefusedError: a line cannot be driven: the laser may be on still.
        """
        self._calls.set("CloseLaser")

    @property
    def power_percent(self) -> float:
        """Optical power, 0 to 100 percent of the potentiometer's travel.

        It is rounded down to one of `power_steps` steps. Cannot be read back.
        """
        raise write_only("power_percent")

    @power_percent.setter
    def power_percent(self, value: float) -> None:
        self._calls.set("SetLaserPower", real("power_percent", value, 0, 100, "%"))

    power_steps = Reading(
        "GetDigitalPOTResolution",
        int,
        doc="""Steps of the power, 1024 or 128. Reads no device.""",
    )
    mode = whole(
        "SetLaserMode",
        0,
        1,
        register="LASER_CTRL.laser_mode",
        doc="""How the FPGA drives the laser's trigger, 0 (after a start) or 1. Cannot be read back.
        """,
    )


class Colour(enum.Enum):
    """What the status light shows."""

    OFF = 0
    RED = 1
    GREEN = 2
    YELLOW = 3
    BLUE = 4
    MAGENTA = 5
    CYAN = 6
    WHITE = 7


class StatusLight(Group):
    """The status light. Device: three lines of sysfs. Threads: one."""

    colour = one_of(
        "LedControl",
        Colour,
        doc="""A Colour, or its name: "off", "red", "magenta", ... Cannot be read back.

        Raises:
            RefusedError: no such colour, or a line cannot be driven; the colours after it keep
                their state.
        """,
    )


class Temperatures(Group):
    """What is warm. For the image sensor see ImageSensor.answers_temperature. Threads: any."""

    @property
    def cpu(self) -> float:
        """The processor's temperature in degrees Celsius. Device: the system monitor.

        Raises:
            RefusedError: the board has no temperature device.
        """
        degrees: float = self._calls.raw("GetCpuTemp")
        # Not a number before a start.
        if not degrees >= ABSOLUTE_ZERO:
            raise self._calls.refused("GetCpuTemp", ())
        return degrees

    external = Reading(
        "Temp18b20Read",
        int,
        bad=-1,
        doc="""Always 0: no board carries the external thermometer that this is about.""",
    )
