#pragma once

#include <nlohmann/json.hpp>

namespace tool {

// Keeps members in the order they were added.
using Json = nlohmann::ordered_json;

}  // namespace tool
