#include "Calls.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <array>
#include <string>
#include <vector>

#include "Make.h"
#include "tessaline/tessaline.h"

namespace py = pybind11;

namespace python {

void Report(Listening& listening) {
  const std::vector<Line> lines = listening.Lines();
  if (lines.empty()) return;
  py::list list;
  for (const Line& line : lines) list.append(py::make_tuple(line.level, line.where, line.text));
  py::module_::import("tessaline._said").attr("take")(list);
}

std::timed_mutex& OneCallAtATime() {
  static auto* const mutex = new std::timed_mutex;
  return *mutex;
}

namespace {

template <typename Result, typename... Arguments>
void Define(py::module_& module, const char* name, Result (*function)(Arguments...)) {
  module.def(name, [=](Arguments... arguments) {
    return Make(name, [&] { return function(arguments...); });
  });
}

void DefineTriggerCalls(py::module_& module) {
  Define(module, "GetDoorControlEn", GetDoorControlEn);
  Define(module, "GetEncoderCounter", GetEncoderCounter);
  Define(module, "GetEncoderFreq", GetEncoderFreq);
  Define(module, "GetGlobalControl", GetGlobalControl);
  Define(module, "GetMasterConctrolID", GetMasterConctrolID);
  Define(module, "GetMasterState", GetMasterState);
  Define(module, "GetReverseDistance", GetReverseDistance);
  Define(module, "GetReverseMode_io", GetReverseMode_io);
  Define(module, "GetTimerCounter", GetTimerCounter);
  Define(module, "GetTriDelay", GetTriDelay);
  Define(module, "GetTriDelayStandard", GetTriDelayStandard);
  Define(module, "GetTriSpacing", GetTriSpacing);
  Define(module, "GetXtrigLostSta", GetXtrigLostSta);
  Define(module, "SetDelayEn", SetDelayEn);
  Define(module, "SetDoorControlEn", SetDoorControlEn);
  Define(module, "SetExtTriggerState", SetExtTriggerState);
  Define(module, "SetExternSignalFilter", SetExternSignalFilter);
  Define(module, "SetGlobalControl", SetGlobalControl);
  Define(module, "SetLasTriPolarity", SetLasTriPolarity);
  Define(module, "SetMasterConctrolID", SetMasterConctrolID);
  Define(module, "SetMasterState", SetMasterState);
  Define(module, "SetReverseDistance", SetReverseDistance);
  Define(module, "SetReverseMode_io", SetReverseMode_io);
  Define(module, "SetTriDelay", SetTriDelay);
  Define(module, "SetTriDelayStandard", SetTriDelayStandard);
  Define(module, "SetTriMode", SetTriMode);
  Define(module, "SetTriSpacing", SetTriSpacing);
  Define(module, "TricontrolSWTrigger", TricontrolSWTrigger);
  Define(module, "TriggerLostReset", TriggerLostReset);
}

void DefineSensorCalls(py::module_& module) {
  Define(module, "GetCmosMaxDrive", GetCmosMaxDrive);
  Define(module, "GetDriveMode", GetDriveMode);
  Define(module, "GetExposureNum", GetExposureNum);
  Define(module, "GetImageHeight", GetImageHeight);
  Define(module, "GetImageWidth", GetImageWidth);
  Define(module, "GetSensorTemp", GetSensorTemp);
  Define(module, "SetCmosGain", SetCmosGain);
  Define(module, "SetDriveMode", SetDriveMode);
  Define(module, "SetExposureNum", SetExposureNum);
  Define(module, "SetExposureTime", SetExposureTime);
  Define(module, "SetFpgaContinuous", SetFpgaContinuous);
  Define(module, "SetHDRParam", SetHDRParam);
  Define(module, "SetHDRParam24", SetHDRParam24);
  Define(module, "SetROI1", SetROI1);
  Define(module, "SetReverseMode", SetReverseMode);
  Define(module, "SetSensingMode", SetSensingMode);
  Define(module, "TransferMaxFrameValue", TransferMaxFrameValue);
}

void DefineStripCalls(py::module_& module) {
  Define(module, "GetCallbackLostNum", GetCallbackLostNum);
  Define(module, "GetCollectMode", GetCollectMode);
  Define(module, "GetRisThresholdValue", GetRisThresholdValue);
  Define(module, "GetStripDataMode", GetStripDataMode);
  Define(module, "GetStripReleaseNum", GetStripReleaseNum);
  Define(module, "GetStripWidthMax", GetStripWidthMax);
  Define(module, "GetStripWidthMin", GetStripWidthMin);
  Define(module, "QV4l2Buf", QV4l2Buf);
  Define(module, "ResetCallbackLostNum", ResetCallbackLostNum);
  Define(module, "ResetFrameID", ResetFrameID);
  Define(module, "ResetStripReleaseNum", ResetStripReleaseNum);
  Define(module, "SetBrFlag", SetBrFlag);
  Define(module, "SetCollectMode", SetCollectMode);
  Define(module, "SetContinuousFlag", SetContinuousFlag);
  Define(module, "SetMeasuringRange", SetMeasuringRange);
  Define(module, "SetRisThresholdValue", SetRisThresholdValue);
  Define(module, "SetRoiOffset", SetRoiOffset);
  Define(module, "SetSampleLightLineParam", SetSampleLightLineParam);
  Define(module, "SetStripDataMode", SetStripDataMode);
  Define(module, "SetStripWidthMax", SetStripWidthMax);
  Define(module, "SetStripWidthMin", SetStripWidthMin);
  Define(module, "SetStripWriteMemMode", SetStripWriteMemMode);
}

void DefineImageProcessingCalls(py::module_& module) {
  Define(module, "SetBinEnable", SetBinEnable);
  Define(module, "SetBriThresMax", SetBriThresMax);
  Define(module, "SetBriThresMin", SetBriThresMin);
  Define(module, "SetEnhanceEnable", SetEnhanceEnable);
  Define(module, "SetEnhanceGain", SetEnhanceGain);
  Define(module, "SetEnhanceThresMax", SetEnhanceThresMax);
  Define(module, "SetEnhanceThresMin", SetEnhanceThresMin);
  Define(module, "SetEnhanceThresNum", SetEnhanceThresNum);
  Define(module, "SetErosionFilterEnable", SetErosionFilterEnable);
  Define(module, "SetErosionFilterStrategy", SetErosionFilterStrategy);
  Define(module, "SetErosionThresMax", SetErosionThresMax);
  Define(module, "SetErosionThresMin", SetErosionThresMin);
  Define(module, "SetErosionThresNum", SetErosionThresNum);
  Define(module, "SetHotpixelEnable", SetHotpixelEnable);
  Define(module, "SetMedianFilterEnable", SetMedianFilterEnable);
  Define(module, "SetObOffset", SetObOffset);
}

void DefineOutputCalls(py::module_& module) {
  Define(module, "DAWrite", DAWrite);
  Define(module, "GetOutDelay", GetOutDelay);
  Define(module, "GetOutDelayEn", GetOutDelayEn);
  Define(module, "GetOutEvent", GetOutEvent);
  Define(module, "GetOutMode", GetOutMode);
  Define(module, "GetOutWidth", GetOutWidth);
  Define(module, "OutputSWTrigger", OutputSWTrigger);
  Define(module, "SetDADelayState", SetDADelayState);
  Define(module, "SetDAOutputDelay", SetDAOutputDelay);
  Define(module, "SetDigitalOutputEnState", SetDigitalOutputEnState);
  Define(module, "SetExtTriDelayStandard", SetExtTriDelayStandard);
  Define(module, "SetOutDelay", SetOutDelay);
  Define(module, "SetOutDelayEn", SetOutDelayEn);
  Define(module, "SetOutEvent", SetOutEvent);
  Define(module, "SetOutMode", SetOutMode);
  Define(module, "SetOutPolarity", SetOutPolarity);
  Define(module, "SetOutWidth", SetOutWidth);
  Define(module, "WRFifo", WRFifo);
}

void DefinePeripheralCalls(py::module_& module) {
  Define(module, "CloseLaser", CloseLaser);
  Define(module, "GetCpuTemp", GetCpuTemp);
  Define(module, "GetDigitalPOTResolution", GetDigitalPOTResolution);
  Define(module, "LedControl", LedControl);
  Define(module, "OpenLaser", OpenLaser);
  Define(module, "SetLaserMode", SetLaserMode);
  Define(module, "SetLaserPower", SetLaserPower);
  Define(module, "Temp18b20Read", Temp18b20Read);
}

// Functions that take arrays or addresses.
void DefineMemoryCalls(py::module_& module) {
  module.def("SetStripRebuildValue", [](std::array<std::int32_t, 21> values) {
    const int result =
        Make("SetStripRebuildValue", [&] { return SetStripRebuildValue(values.data()); });
    return py::make_tuple(result, values);
  });
  module.def("ConfigRead", [](int size) {
    std::vector<unsigned char> bytes(512);
    const int result = Make("ConfigRead", [&] { return ConfigRead(bytes.data(), size); });
    const std::size_t got = result == 0 ? static_cast<std::size_t>(size) : 0;
    return py::make_tuple(result, py::bytes(reinterpret_cast<const char*>(bytes.data()), got));
  });
  module.def("ConfigSave", [](const std::string& bytes) {
    std::vector<unsigned char> copy(bytes.begin(), bytes.end());
    copy.resize(std::max<std::size_t>(copy.size(), 1));
    return Make("ConfigSave",
                [&] { return ConfigSave(copy.data(), static_cast<int>(bytes.size())); });
  });
  module.def("eeprom_page_read", [](unsigned char address, unsigned length, unsigned char chip) {
    std::array<char, 256> bytes{};
    const int result = Make("eeprom_page_read",
                            [&] { return eeprom_page_read(address, bytes.data(), length, chip); });
    const std::size_t got = result < 0 ? 0 : length & 0xFF;
    return py::make_tuple(result, py::bytes(bytes.data(), got));
  });
  module.def("eeprom_page_write",
             [](unsigned char address, const std::string& bytes, unsigned char chip) {
               return Make("eeprom_page_write", [&] {
                 return eeprom_page_write(address, bytes.data(),
                                          static_cast<unsigned char>(bytes.size()), chip);
               });
             });
  Define(module, "fpga_read_addr", fpga_read_addr);
  Define(module, "fpga_write_addr", fpga_write_addr);
  module.def("TessalineGetCaptureStatistics", [](unsigned stream) {
    tessaline_capture_statistics seen{};
    const int result = Make("TessalineGetCaptureStatistics",
                            [&] { return TessalineGetCaptureStatistics(stream, &seen); });
    py::dict counters;
    counters["dequeued"] = seen.dequeued;
    counters["delivered"] = seen.delivered;
    counters["suppressed"] = seen.suppressed;
    counters["released"] = seen.released;
    counters["malformed"] = seen.malformed;
    counters["dequeue_errors"] = seen.dequeue_errors;
    counters["ids_seen"] = seen.ids_seen;
    counters["id_gaps"] = seen.id_gaps;
    counters["ids_missing"] = seen.ids_missing;
    counters["ids_out_of_order"] = seen.ids_out_of_order;
    counters["callbacks"] = seen.callbacks;
    counters["callback_total_ns"] = seen.callback_total_ns;
    counters["callback_mean_ns"] = seen.callback_mean_ns;
    counters["callback_max_ns"] = seen.callback_max_ns;
    return py::make_tuple(result, counters);
  });
  Define(module, "TessalineResetCaptureStatistics", TessalineResetCaptureStatistics);
}

}  // namespace

void DefineCalls(py::module_& module) {
  DefineTriggerCalls(module);
  DefineSensorCalls(module);
  DefineStripCalls(module);
  DefineImageProcessingCalls(module);
  DefineOutputCalls(module);
  DefinePeripheralCalls(module);
  DefineMemoryCalls(module);
}

}  // namespace python
