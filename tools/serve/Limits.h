#pragma once

#include "Json.h"
#include "Models.h"

namespace tool::serve {

// What a model's settings may be.
Json LimitsJson(const Model& model);

}  // namespace tool::serve
