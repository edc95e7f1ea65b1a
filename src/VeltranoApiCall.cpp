#include "VeltranoApiCall.h"

#include <cxxabi.h>

#include <exception>

#include "log/Log.h"

namespace VeltranoSDK::api {

Entry::Entry(const char* function, const char* file, int line)
    : function_(function), file_(file), line_(line) {
  Trace(function, file, line);
}

void Entry::Error(const char* what) const {
  log_log(TESSALINE_LOG_ERROR, file_, line_, "%s: %s", function_, what);
}

void Entry::TellException() const {
  try {
    throw;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const Foundation::SingletonLockFailed&) {
    throw;
  } catch (const std::exception& exception) {
    Error(exception.what());
  } catch (...) {
    Error("an exception of no known kind");
  }
}

}  // namespace VeltranoSDK::api
