"""Where each function that the device library exports lives in this package."""

from __future__ import annotations

import importlib
import pathlib
from typing import Any

import pytest
from started import board, on_another
from tessaline.errors import RefusedError

ROOT = pathlib.Path(__file__).parents[2]

# By function: the line of Python that calls it, s being a sensor.
CALLED = {
    "CloseLaser": "s.laser.off()",
    "ConfigRead": "s.store.read()",
    "ConfigSave": "s.store.write(b'serial')",
    "DAWrite": "s.da_output.value = 0",
    "GetCallbackLostNum": "s.statistics.lost_buffers",
    "GetCmosMaxDrive": "s.image_sensor.full_size",
    "GetCpuTemp": "s.temperatures.cpu",
    "GetDigitalPOTResolution": "s.laser.power_steps",
    "GetDoorControlEn": "s.trigger.mode = 'timer'; s.trigger.door_control",
    "GetDriveMode": "s.image_sensor.drive_mode",
    "GetEncoderCounter": "s.encoder.position",
    "GetEncoderFreq": "s.encoder.frequency",
    "GetExposureNum": "s.image_sensor.exposure_count",
    "GetGlobalControl": "s.trigger.running",
    "GetImageHeight": "s.image_sensor.height",
    "GetImageWidth": "s.image_sensor.width",
    "GetMasterConctrolID": "s.sync.id",
    "GetMasterState": "s.sync.master",
    "GetOutDelay": "s.outputs[0].delay_us = 1; s.outputs[0].delay_us",
    "GetOutDelayEn": "s.outputs[0].delay_enabled",
    "GetOutWidth": "s.outputs[1].width",
    "GetReverseDistance": "s.encoder.reverse_mode = 2; s.encoder.reverse_distance",
    "GetReverseMode_io": "s.encoder.reverse_mode",
    "GetRisThresholdValue": "s.extraction.rise_threshold",
    "GetSensorTemp": "s.image_sensor.answers_temperature",
    "GetStripDataMode": "s.extraction.data_mode",
    "GetStripReleaseNum": "s.statistics.released_strips",
    "GetStripWidthMax": "s.extraction.width_max",
    "GetStripWidthMin": "s.extraction.width_min",
    "GetTimerCounter": "s.trigger.clock_ticks",
    "GetTriDelay": "s.trigger.delay_us = 1; s.trigger.delay_us",
    "GetTriDelayStandard": "s.trigger.delay_us = 1; s.trigger.delay_us",
    "GetTriSpacing": "s.trigger.mode = 'timer'; s.trigger.spacing_us",
    "GetXtrigLostSta": "s.trigger.lost",
    "LedControl": "s.status_light.colour = 'green'",
    "OpenLaser": "s.laser.on()",
    "OutputSWTrigger": "s.outputs[0].fire()",
    "ResetCallbackLostNum": "s.statistics.reset_lost_buffers()",
    "ResetStripReleaseNum": "s.statistics.reset_released_strips()",
    "SetBinEnable": "s.processing.binning = False",
    "SetBrFlag": "s.extraction.brightness = False",
    "SetBriThresMax": "s.processing.brightness_max = 255",
    "SetBriThresMin": "s.processing.brightness_min = 0",
    "SetCmosGain": "s.image_sensor.gain = 0",
    "SetContinuousFlag": "s.extraction.continuous = False",
    "SetDAOutputDelay": "s.da_output.delay_us = 0",
    "SetDelayEn": "s.trigger.delay_enabled = False",
    "SetDigitalOutputEnState": "s.outputs[0].enabled = False",
    "SetDoorControlEn": "s.trigger.mode = 'timer'; s.trigger.door_control = False",
    "SetDriveMode": "s.image_sensor.drive_mode = 'full'",
    "SetEnhanceEnable": "s.processing.enhancement.enabled = False",
    "SetEnhanceGain": "s.processing.enhancement.gain = 1",
    "SetEnhanceThresMax": "s.processing.enhancement.max = 200",
    "SetEnhanceThresMin": "s.processing.enhancement.min = 20",
    "SetEnhanceThresNum": "s.processing.enhancement.count = 3",
    "SetErosionFilterEnable": "s.processing.erosion.enabled = False",
    "SetErosionFilterStrategy": "s.processing.erosion.strategy = 1",
    "SetErosionThresMax": "s.processing.erosion.max = 200",
    "SetErosionThresMin": "s.processing.erosion.min = 20",
    "SetErosionThresNum": "s.processing.erosion.count = 3",
    "SetExposureNum": "s.image_sensor.exposure_count = 1",
    "SetExposureTime": "s.image_sensor.set_exposure(1, 100)",
    "SetExtTriDelayStandard": "s.outputs[0].delay_pulses = 5",
    "SetExternSignalFilter": "s.trigger.input_filter_us = 5",
    "SetHotpixelEnable": "s.processing.hot_pixel = False",
    "SetLasTriPolarity": "s.trigger.laser_polarity = 0",
    "SetLaserMode": "s.laser.mode = 0",
    "SetLaserPower": "s.laser.power_percent = 50",
    "SetMasterConctrolID": "s.sync.id = 0",
    "SetMasterState": "s.sync.master = False",
    "SetMeasuringRange": "s.reconstruction.measuring_range = (0, 100)",
    "SetMedianFilterEnable": "s.processing.median = False",
    "SetObOffset": "s.processing.black_offset = 0",
    "SetOutDelay": "s.outputs[1].delay_us = 5",
    "SetOutDelayEn": "s.outputs[1].delay_enabled = False",
    "SetOutEvent": "s.outputs[1].event = 0",
    "SetOutMode": "s.outputs[1].mode = 0",
    "SetOutPolarity": "s.outputs[1].polarity = 0",
    "SetOutWidth": "s.outputs[1].width = 100",
    "SetROI1": "s.image_sensor.region = (0, 0, 1456, 1088)",
    "SetReverseDistance": "s.encoder.reverse_mode = 2; s.encoder.reverse_distance = 5",
    "SetReverseMode": "s.image_sensor.direction = 'normal'",
    "SetReverseMode_io": "s.encoder.reverse_mode = 0",
    "SetRisThresholdValue": "s.extraction.rise_threshold = 40",
    "SetRoiOffset": "s.reconstruction.roi_offset = (0, 0)",
    "SetSampleLightLineParam": "s.reconstruction.set_sampling(0, 1, 100)",
    "SetStripDataMode": "s.extraction.data_mode = 0",
    "SetStripRebuildValue": "s.reconstruction.coefficients = [0] * 21",
    "SetStripWidthMax": "s.extraction.width_max = 64",
    "SetStripWidthMin": "s.extraction.width_min = 2",
    "SetStripWriteMemMode": "s.extraction.write_mode = 0",
    "SetTriDelay": "s.trigger.delay_us = 0",
    "SetTriDelayStandard": "s.trigger.delay_us = 0",
    "SetTriMode": "s.trigger.mode = 'timer'",
    "SetTriSpacing": "s.trigger.mode = 'timer'; s.trigger.spacing_us = 4000",
    "Temp18b20Read": "s.temperatures.external",
    "TessalineGetCaptureStatistics": "s.statistics.strips",
    "TessalineResetCaptureStatistics": "s.statistics.reset()",
    "TransferMaxFrameValue": "s.image_sensor.frame_rate_constant",
    "TricontrolSWTrigger": "s.trigger.fire()",
    "TriggerLostReset": "s.trigger.reset_lost()",
    "WRFifo": "s.outputs[0].push()",
    "eeprom_page_read": "s.store.read_page(3)",
    "eeprom_page_write": "s.store.write_page(3, b'a')",
    "fpga_read_addr": "s.registers['TRI_SPACING']",
    "fpga_write_addr": "s.registers['TRI_SPACING'] = 200_000",
}
# The same for functions that only one sensor has, on a product with it.
CALLED_ON_ANOTHER = {
    "SetFpgaContinuous": ("K3910", "s.image_sensor.continuous = False"),
    "SetHDRParam": ("K4010", "s.image_sensor.set_hdr_knee(1, 10)"),
    "SetHDRParam24": ("K3910", "s.image_sensor.set_hdr_segments(0.5, 0.25)"),
    "SetSensingMode": ("K3910", "s.image_sensor.sensing_mode = 1"),
}
# Functions that are no settings: the name where they are used.
ELSEWHERE = {
    # Cannot tell anything: they give 0 whatever was set. Reading says so and calls nothing.
    "GetOutEvent": "settings.Output.event",
    "GetOutMode": "settings.Output.mode",
    # The lock inside every access of a register.
    "fpga_contol": "registers.Registers",
    # Start-up, frames and events.
    "GetLibVersion": "sensor.Sensor.interface_version",
    "RegisterHardwareInit": "sensor.Sensor",
    "RegisterEventHandler": "sensor.Sensor.events",
    "GetCollectMode": "sensor.Sensor.collecting",
    # Gives back a buffer that was taken by its index, which no exported function does.
    "QV4l2Buf": "_device.QV4l2Buf",
    "ResetFrameID": "sensor.Sensor.reset_frame_ids",
    "SetCollectMode": "sensor.Sensor.strips",
    "SetDADelayState": "sensor.Sensor.on_da_arrived",
    "SetExtTriggerState": "sensor.Sensor.on_external_trigger",
    "SetGlobalControl": "sensor.Sensor.images",
    # What the library logs goes to logging, from the logger "tessaline.library". Python's own lines
    # and files go there, too, so the library's logger has no other use here.
    "log_add_callback": "_device.prepare",
    "log_set_quiet": "_device.prepare",
    "log_set_level": "_device.GetLibVersion",
    "log_add_fp": "_said.tell",
    "log_level_string": "_said.tell",
    "log_log": "_said.tell",
    "log_set_lock": "_said.tell",
    # Python keeps its own SIGINT, and signal.signal() is what these are in C++.
    "_ZN11VeltranoSDK13SignalHandler12handleSignalEi": "_device.start",
    "_ZN11VeltranoSDK13SignalHandler7installEv": "_device.start",
    "_ZN11VeltranoSDK13SignalHandlerC1Ev": "_device.start",
    "_ZN11VeltranoSDK13SignalHandlerC2Ev": "_device.start",
    "_ZN11VeltranoSDK13SignalHandlerD1Ev": "_device.start",
    "_ZN11VeltranoSDK13SignalHandlerD2Ev": "_device.start",
    # Plain capture. A channel's steps are those functions.
    "create_video_channel": "video.Channel",
    "close_video_channel": "video.Channel.close",
    "v4l2_close": "video.Channel",
    "v4l2_dqbuf": "video.Channel.frame",
    "v4l2_open": "video.Channel",
    "v4l2_qbuf": "video.Channel.start",
    "v4l2_release": "video.Channel.frame",
    "v4l2_reqbufs": "video.Channel",
    "v4l2_setfmt": "video.Channel",
    "v4l2_streamoff": "video.Channel.stop",
    "v4l2_streamon": "video.Channel.start",
    "video_release_img_buf": "video.Channel.frame",
    "video_request_img_buf": "video.Channel.frame",
    "video_start_capture": "video.Channel.start",
    "video_stop_capture": "video.Channel.stop",
    # The version of the interface, not a function.
    "TESSALINE_1": "_device",
}


def test_every_export_has_its_place() -> None:
    exported = (ROOT / "tests" / "exports.txt").read_text().split()
    assert sorted([*CALLED, *CALLED_ON_ANOTHER, *ELSEWHERE]) == sorted(exported)


@pytest.mark.parametrize("function", CALLED)
def test_a_line_of_python_calls_it(function: str) -> None:
    s = board()
    s.calls.made.clear()
    exec(CALLED[function], {"s": s})
    assert function in s.calls.made or f"register_{function}" in s.calls.made


@pytest.mark.parametrize("model", ["K3910", "K4010"])
def test_a_line_of_python_calls_it_on_another_product(model: str) -> None:
    for function, (where, line) in CALLED_ON_ANOTHER.items():
        if where == model:
            on_another(model, f"{line}\nassert {function!r} in s.calls.made, s.calls.made")


@pytest.mark.parametrize("function", ELSEWHERE)
def test_the_name_is_there(function: str) -> None:
    module, *names = ELSEWHERE[function].replace("_device", "_virtual").split(".")
    board()  # a module of the device library is loaded with its board
    found: Any = importlib.import_module(f"tessaline.{module}")
    for name in names:
        found = getattr(found, name)
    assert found is not None


def test_an_output_does_not_pretend_to_know() -> None:
    s = board()
    s.calls.made.clear()
    for name in ("event", "mode"):
        assert not hasattr(s.outputs[0], name)
    assert s.calls.made == []


def test_a_closed_sensor_refuses_everything() -> None:
    s = board()
    s.calls.close("the sensor is closed")
    try:
        for function, line in CALLED.items():
            with pytest.raises(Exception, match="the sensor is closed"):
                exec(line, {"s": s})
    finally:
        s.calls.close("")  # opens it again
    with pytest.raises(RefusedError):
        s.sync.id = 16
