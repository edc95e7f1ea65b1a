#pragma once

#include <memory>

#include "Command.h"

namespace tool::fleet {

std::unique_ptr<Command> MakePublishCommand();
std::unique_ptr<Command> MakeSubscribeCommand();
std::unique_ptr<Command> MakeFleetCommand();

}  // namespace tool::fleet
