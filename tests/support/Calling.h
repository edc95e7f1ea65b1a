#pragma once

// One call of a function and everything it must do, written as one line:
//
//   Calling(SetTriSpacing, 1).Reads(TRIGGER_CTRL, 0).Writes(TRI_SPACING, 100)
//
// A register that is read has that value before the call. A call returns 0 and prints nothing
// unless the line says otherwise. Any other access is a failure.

#include <errno.h>
#include <gmock/gmock.h>

#include <cstdint>
#include <functional>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/BoardFixture.h"

namespace tessaline_test {

using namespace VeltranoSDK::fpga;  // NOLINT(google-build-using-namespace): the rows name registers

inline constexpr std::uint32_t kAllOnes = 0xFFFFFFFF;

// The result of a call as a number of 64 bits: -1 of an int is not 0xFFFFFFFF.
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
        }),
        arguments_(Text(argument...)) {}

  // Calls something that is not a function.
  template <typename... Argument>
  static Calling Something(std::function<Result()> make, Argument... argument) {
    return {std::move(make), Text(argument...), 0};
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
  // Reads the register and writes it back with a field replaced.
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
  // No access reaches the FPGA.
  Calling&& LosesAll() && {
    lost_ = {0, 0};
    return std::move(*this);
  }
  Calling&& Returns(Result result) && {
    result_ = result;
    return std::move(*this);
  }
  Calling&& Prints(const char* printed) && {
    printed_ = printed;
    return std::move(*this);
  }
  Calling&& Fails(const char* printed = "") && {
    return std::move(*this).Prints(printed).Returns(static_cast<Result>(-1));
  }
  // Stops at the access with this number, from 0, which does not reach the FPGA.
  Calling&& FailsAt(unsigned int access, const char* printed = "") && {
    steps_.resize(access);
    return std::move(*this).LosesAccess(access).Fails(printed);
  }
  // Like Fails, for a getter of 32 bits: it returns all ones.
  Calling&& FailsToGet(const char* printed) && {
    return std::move(*this).Prints(printed).Returns(kAllOnes);
  }

  struct Preset {
    fpga::Register reg;
    std::uint32_t value;
  };
  // Lost accesses in the board's terms: how many succeed first, and how many then fail (0: all).
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
  Calling(std::function<Result()> make, std::string arguments, int)
      : make_(std::move(make)), arguments_(std::move(arguments)) {}

  template <typename... Argument>
  static std::string Text(Argument... argument) {
    std::ostringstream text;
    text << std::hex << std::showbase;
    ((text << ' ' << argument), ...);
    return text.str();
  }

  std::function<Result()> make_;
  std::string arguments_;
  std::vector<Preset> before_;
  std::vector<std::string> steps_;
  Loss lost_{.none = true};
  Result result_ = 0;
  std::string printed_;
};

// The calls run one after another on one board.
struct CalledFunction {
  std::string name;
  std::vector<Calling> calls;
};

inline void PrintTo(const CalledFunction& function, std::ostream* out) { *out << function.name; }

// A board on which a function's calls are made.
template <typename Board>
class CallingOn : public Board, public ::testing::WithParamInterface<CalledFunction> {
 public:
  static std::string Name(const ::testing::TestParamInfo<CalledFunction>& info) {
    return info.param.name;
  }

 protected:
  using Board::Board;

  void CheckAll() {
    for (const Calling& call : this->GetParam().calls) {
      const ::testing::ScopedTrace row(__FILE__, __LINE__,
                                       this->GetParam().name + call.arguments());
      Check(call);
    }
  }

  virtual void Check(const Calling& call) {
    for (const Calling::Preset& preset : call.before()) Board::Set(preset.reg, preset.value);
    if (!call.lost().none) {
      tessaline_board_fault("fpga", "mmap", call.lost().skip, call.lost().count, ENOMEM);
    }
    tessaline_board_transcript_clear();
    Board::Printed();  // a row that failed has printed it there too
    const Result result = call.Make();
    const std::string printed = Board::Printed();
    EXPECT_EQ(result, call.result());
    EXPECT_EQ(printed, call.printed());
    EXPECT_EQ(Board::Steps(), call.steps());
    EXPECT_THAT(OtherEvents(), ::testing::IsEmpty());
    tessaline_board_clear_faults();
  }

 private:
  // Events on the board other than register accesses and sleeps.
  static std::vector<std::string> OtherEvents() {
    auto events = Board::Events();
    std::erase_if(events, [](const std::string& event) {
      return event.starts_with("fpga ") || event.starts_with("sleep ");
    });
    return events;
  }
};

}  // namespace tessaline_test
