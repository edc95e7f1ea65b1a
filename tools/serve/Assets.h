#pragma once

#include <string_view>

namespace tool::serve::assets {

// Files that are part of the program.
std::string_view Page();            // the page, whole
std::string_view PageScriptHash();  // "sha256-...", of its script
std::string_view OpenApi();

}  // namespace tool::serve::assets
