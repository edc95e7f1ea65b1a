#include "VeltranoApiCall.h"

#include "log/Log.h"

namespace VeltranoSDK::api {

Entry::Entry(const char* function, const char* file, int line)
    : function_(function), file_(file), line_(line) {
  Trace(function, file, line);
}

void Entry::Error(const char* what) const {
  log_log(TESSALINE_LOG_ERROR, file_, line_, "%s: %s", function_, what);
}

}  // namespace VeltranoSDK::api
