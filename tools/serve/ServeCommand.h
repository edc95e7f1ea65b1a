#pragma once

#include <memory>

#include "Command.h"

namespace tool::serve {

std::unique_ptr<Command> MakeServeCommand();

}  // namespace tool::serve
