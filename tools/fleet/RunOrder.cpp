#include "fleet/RunOrder.h"

#include <algorithm>
#include <utility>

namespace tool::fleet {

RunOrder::RunOrder(std::map<std::string, std::uint64_t> used) {
  for (const auto& [run, last] : used) runs_[run].next = last + 1;
}

bool RunOrder::Waits() const {
  return std::any_of(runs_.begin(), runs_.end(),
                     [](const auto& named) { return !named.second.early.empty(); });
}

void RunOrder::Drain(const std::string& name, Run& run, std::vector<Step>& steps) {
  while (!run.early.empty() && run.early.begin()->first <= run.next) {
    auto first = run.early.extract(run.early.begin());
    Arrival& arrival = first.mapped();
    run.next = arrival.header.sequence + 1;
    run.joined = false;
    run.ended |= arrival.header.kind == Kind::kEnd;
    steps.push_back({std::move(arrival), name});
  }
}

// Nothing comes any more up to `to`: what is there comes out, and holes in between.
void RunOrder::Skip(const std::string& name, Run& run, std::uint64_t to, std::vector<Step>& steps) {
  Drain(name, run, steps);
  while (run.next <= to) {
    const std::uint64_t last = run.early.empty() ? to : std::min(to, run.early.begin()->first - 1);
    if (!run.joined) steps.push_back({std::nullopt, name, {run.next, last}});
    run.next = last + 1;
    Drain(name, run, steps);
  }
}

// Another run has begun. Everything that the server has of the one before has come, because it
// stands in front of this one in the stream.
void RunOrder::Leave(std::vector<Step>& steps) {
  const auto found = runs_.find(current_);
  if (found == runs_.end()) return;
  Run& run = found->second;
  if (!run.early.empty()) {
    Skip(current_, run, run.early.rbegin()->second.header.sequence, steps);
  }
  if (run.ended) return;
  run.ended = true;
  Step over{std::nullopt, current_};
  over.run_is_over = true;
  steps.push_back(std::move(over));
}

std::vector<RunOrder::Step> RunOrder::Add(Arrival arrival, std::optional<Arrival>& duplicate) {
  std::vector<Step> steps;
  const std::string name = arrival.header.run;
  const bool known = runs_.contains(name);
  if (name != current_) {
    Leave(steps);
    current_ = name;
  }
  Run& run = runs_[name];
  const std::uint64_t acknowledged = std::min(arrival.acknowledged, arrival.header.first() - 1);
  if (!known) {
    run.next = acknowledged + 1;
    run.joined = acknowledged > 0;
  }
  const bool late = arrival.header.sequence < run.next;
  if (late || run.early.contains(arrival.header.first())) {
    duplicate = std::move(arrival);
    return steps;
  }
  run.early.emplace(arrival.header.first(), std::move(arrival));
  // What was acknowledged before this one was sent stands in front of it in the stream.
  Skip(name, run, acknowledged, steps);
  return steps;
}

}  // namespace tool::fleet
