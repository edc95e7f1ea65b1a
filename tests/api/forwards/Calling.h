#pragma once

// One call of an exported function and everything it must do, written as one line:
//
//   Calling(SetTriSpacing, 1).Reads(TRIGGER_CTRL, 0).Writes(TRI_SPACING, 100)
//
// A register that is read has that value beforehand; a call returns 0 and prints
// nothing unless the line says so. Any other access is a failure.

#include <cstdint>
#include <functional>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "support/BoardFixture.h"
#include "tessaline/tessaline.h"

namespace tessaline_test {

using namespace VeltranoSDK::fpga;  // NOLINT(google-build-using-namespace): the rows name registers

inline constexpr std::uint32_t kAllOnes = 0xFFFFFFFF;

// What a call returns, as a number of 64 bits: -1 of an int is not 0xFFFFFFFF.
using Result = std::uint64_t;

class Calling {
 public:
  template <typename Value, typename... Parameter>
  explicit Calling(Value (*function)(Parameter...), std::type_identity_t<Parameter>... argument)
      : make_([=]() -> Result {
          if constexpr (std::is_void_v<Value>) {
            function(argument...);
            return 0;
          } else {
            return static_cast<Result>(function(argument...));
          }
        }) {
    std::ostringstream text;
    text << std::hex << std::showbase;
    ((text << ' ' << argument), ...);
    arguments_ = text.str();
  }

  Calling&& Reads(const fpga::Register& reg, std::uint32_t value) && {
    before_.push_back({reg, value});
    steps_.push_back(Read(reg, value));
    return std::move(*this);
  }
  Calling&& Writes(const fpga::Register& reg, std::uint32_t value) && {
    steps_.push_back(Wrote(reg, value));
    return std::move(*this);
  }
  // Read, and written back with a field replaced.
  Calling&& Changes(const fpga::Register& reg, std::uint32_t from, std::uint32_t to) && {
    return std::move(*this).Reads(reg, from).Writes(reg, to);
  }
  Calling&& Sleeps(unsigned int microseconds) && {
    steps_.push_back(Slept(microseconds));
    return std::move(*this);
  }
  // The access with this number, from 0, does not reach the FPGA.
  Calling&& LosesAccess(unsigned int number) && {
    lost_ = {number, 1};
    return std::move(*this);
  }
  // None does.
  Calling&& LosesAll() && {
    lost_ = {0, 0};
    return std::move(*this);
  }
  Calling&& Returns(Result result) && {
    result_ = result;
    return std::move(*this);
  }
  Calling&& Fails(const char* printed = "") && {
    printed_ = printed;
    return std::move(*this).Returns(static_cast<Result>(-1));
  }
  // A getter of 32 bits has all ones for it.
  Calling&& FailsToGet(const char* printed) && {
    printed_ = printed;
    return std::move(*this).Returns(0xFFFFFFFF);
  }

  struct Preset {
    fpga::Register reg;
    std::uint32_t value;
  };
  // Accesses that are lost, in the board's terms: how many are not, and how many
  // then are (0: all).
  struct Loss {
    unsigned int skip = 0;
    unsigned int count = 1;
    bool none = false;
  };

  Result Make() const { return make_(); }
  const std::string& arguments() const { return arguments_; }
  const std::vector<Preset>& before() const { return before_; }
  const std::vector<std::string>& steps() const { return steps_; }
  const Loss& lost() const { return lost_; }
  Result result() const { return result_; }
  const std::string& printed() const { return printed_; }

 private:
  std::function<Result()> make_;
  std::string arguments_;
  std::vector<Preset> before_;
  std::vector<std::string> steps_;
  Loss lost_{.none = true};
  Result result_ = 0;
  std::string printed_;
};

struct ForwardedFunction {
  std::string name;
  std::vector<Calling> calls;
};

inline void PrintTo(const ForwardedFunction& function, std::ostream* out) { *out << function.name; }

}  // namespace tessaline_test
