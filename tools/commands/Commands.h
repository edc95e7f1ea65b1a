#pragma once

#include <array>
#include <memory>

#include "Command.h"

namespace tool {

std::unique_ptr<Command> MakeModelsCommand();
std::unique_ptr<Command> MakeInfoCommand();
std::unique_ptr<Command> MakeCheckCommand();
std::unique_ptr<Command> MakeCaptureCommand();
std::unique_ptr<Command> MakeWatchCommand();
std::unique_ptr<Command> MakeRecordCommand();
std::unique_ptr<Command> MakeReplayCommand();
std::unique_ptr<Command> MakeServeCommand();
std::unique_ptr<Command> MakePublishCommand();
std::unique_ptr<Command> MakeSubscribeCommand();
std::unique_ptr<Command> MakeFleetCommand();
std::unique_ptr<Command> MakeRegCommand();
std::unique_ptr<Command> MakeLaserCommand();
std::unique_ptr<Command> MakeLedCommand();
std::unique_ptr<Command> MakePowerCommand();
std::unique_ptr<Command> MakeExposureCommand();
std::unique_ptr<Command> MakeRoiCommand();
std::unique_ptr<Command> MakeTriggerCommand();
std::unique_ptr<Command> MakeRecipeCommand();
std::unique_ptr<Command> MakeEepromCommand();
std::unique_ptr<Command> MakeCalibrateCommand();
std::unique_ptr<Command> MakeCalibrationCommand();
std::unique_ptr<Command> MakeSensorCommand();
std::unique_ptr<Command> MakeTimeCommand();
std::unique_ptr<Command> MakeTraceCommand();
std::unique_ptr<Command> MakeBagCommand();

inline constexpr std::array kCommandMakers{
    MakeCheckCommand,       MakeCaptureCommand, MakeWatchCommand,   MakeRecordCommand,
    MakeReplayCommand,      MakeServeCommand,   MakePublishCommand, MakeSubscribeCommand,
    MakeFleetCommand,       MakeInfoCommand,    MakeModelsCommand,  MakeRegCommand,
    MakeLaserCommand,       MakeLedCommand,     MakePowerCommand,   MakeExposureCommand,
    MakeRoiCommand,         MakeTriggerCommand, MakeRecipeCommand,  MakeCalibrateCommand,
    MakeCalibrationCommand, MakeEepromCommand,  MakeSensorCommand,  MakeTimeCommand,
    MakeTraceCommand,       MakeBagCommand,
};

}  // namespace tool
