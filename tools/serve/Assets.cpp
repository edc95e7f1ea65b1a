#include "serve/Assets.h"

#include <cstddef>

namespace {

// What the assembler has put between two labels.
struct Labels {
  const char* begin;
  const char* end;
  std::string_view Text() const { return {begin, static_cast<std::size_t>(end - begin)}; }
};

}  // namespace

extern "C" {
extern const char tessaline_page_begin[], tessaline_page_end[];
extern const char tessaline_page_hash_begin[], tessaline_page_hash_end[];
extern const char tessaline_openapi_begin[], tessaline_openapi_end[];
}

namespace tool::serve::assets {

std::string_view Page() { return Labels{tessaline_page_begin, tessaline_page_end}.Text(); }

std::string_view PageScriptHash() {
  std::string_view hash = Labels{tessaline_page_hash_begin, tessaline_page_hash_end}.Text();
  while (hash.ends_with('\n')) hash.remove_suffix(1);
  return hash;
}

std::string_view OpenApi() { return Labels{tessaline_openapi_begin, tessaline_openapi_end}.Text(); }

}  // namespace tool::serve::assets
