#pragma once

#include <pybind11/pybind11.h>

#include <exception>
#include <string>
#include <utility>

#include "Failure.h"
#include "Models.h"

namespace python {

// The command's failures are RefusedError in Python, in the command's own words. For one module.
inline void TranslateFailures() {
  pybind11::register_local_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(std::move(thrown));
    } catch (const tool::Failure& failure) {
      const auto type = pybind11::module_::import("tessaline.errors").attr("RefusedError");
      PyErr_SetObject(type.ptr(), type(failure.what(), failure.next()).ptr());
    }
  });
}

// A model code, and what it means.
class KnownModel {
 public:
  explicit KnownModel(std::string code) : code_(std::move(code)), model_(code_) {
    model_.Require();
  }
  KnownModel(const KnownModel&) = delete;
  KnownModel& operator=(const KnownModel&) = delete;
  const tool::Model& operator*() const { return model_; }

 private:
  const std::string code_;
  const tool::Model model_;
};

}  // namespace python
