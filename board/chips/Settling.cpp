#include "chips/Settling.h"

#include "Clock.h"

namespace board {
namespace {

constexpr std::int64_t kLongestNs = 500'000'000;

}  // namespace

void Settling::Begin(unsigned looks) {
  state_ = State::kUnderWay;
  looks_left_ = looks;
  due_ns_ = NowNs() + kLongestNs;
}

bool Settling::Look() {
  if (state_ == State::kUnderWay) {
    if (looks_left_ == 0) {
      state_ = State::kSettled;
    } else {
      --looks_left_;
    }
  }
  return Settled();
}

bool Settling::Settled() const {
  return state_ == State::kSettled || (state_ == State::kUnderWay && NowNs() >= due_ns_);
}

}  // namespace board
