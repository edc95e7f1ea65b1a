#pragma once

#include <string>

namespace tool::fleet {

// A user's entry for the configuration of a server: the subjects that somebody of this role and
// name needs, and no others. `role`: "sensor", "subscriber" or "operator".
std::string RightsOf(const std::string& role, const std::string& name, const std::string& key);

}  // namespace tool::fleet
