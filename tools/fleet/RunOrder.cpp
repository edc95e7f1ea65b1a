#include "fleet/RunOrder.h"

#include <algorithm>
#include <utility>

namespace tool::fleet {

RunOrder::RunOrder(const std::map<std::string, Used>& used) {
  for (const auto& [name, known] : used) {
    Run& run = runs_[name];
    run.next = known.last + 1;
    run.over = known.over;
  }
}

bool RunOrder::Waits() const {
  return std::any_of(runs_.begin(), runs_.end(),
                     [](const auto& named) { return !named.second.early.empty(); });
}

void RunOrder::Drain(const std::string& name, Run& run, Result& result) {
  while (!run.early.empty() && run.early.begin()->first <= run.next) {
    auto first = run.early.extract(run.early.begin());
    Arrival& arrival = first.mapped();
    if (arrival.header.sequence < run.next) {
      result.duplicates.push_back(std::move(arrival));
      continue;
    }
    run.next = arrival.header.sequence + 1;
    run.joined = false;
    run.over |= arrival.header.kind == Kind::kEnd;
    result.steps.push_back({std::move(arrival), name});
  }
}

// Nothing comes any more up to `to`: what is there comes out, and holes in between.
void RunOrder::Skip(const std::string& name, Run& run, std::uint64_t to, Result& result) {
  Drain(name, run, result);
  while (run.next <= to) {
    const std::uint64_t last = run.early.empty() ? to : std::min(to, run.early.begin()->first - 1);
    if (!run.joined) result.steps.push_back({std::nullopt, name, {run.next, last}});
    run.next = last + 1;
    Drain(name, run, result);
  }
}

// Another run has begun. Everything that the server has of this one has come, because it stands in
// front of the other in the stream.
void RunOrder::Leave(const std::string& name, Run& run, Result& result) {
  if (!run.early.empty()) {
    Skip(name, run, run.early.rbegin()->second.header.sequence, result);
  }
  if (run.over) return;
  run.over = true;
  Step over{std::nullopt, name};
  over.run_is_over = true;
  result.steps.push_back(std::move(over));
}

std::vector<RunOrder::Step> RunOrder::Add(Arrival arrival, std::vector<Arrival>& duplicates) {
  Result result{{}, duplicates};
  const std::string name = arrival.header.run;
  const std::uint64_t first = arrival.header.first();
  const std::uint64_t acknowledged = std::min(arrival.acknowledged, first - 1);
  auto known = runs_.find(name);
  // What comes again says nothing about which run is sent now.
  if (known != runs_.end() &&
      (arrival.header.sequence < known->second.next || known->second.early.contains(first))) {
    duplicates.push_back(std::move(arrival));
    return {};
  }
  if (name != current_) {
    for (auto& [other, run] : runs_) {
      if (other != name) Leave(other, run, result);
    }
    current_ = name;
  }
  if (known == runs_.end()) {
    known = runs_.try_emplace(name).first;
    known->second.next = acknowledged + 1;
    known->second.joined = acknowledged > 0;
  }
  Run& run = known->second;
  run.early.emplace(first, std::move(arrival));
  // What was acknowledged before this one was sent stands in front of it in the stream.
  Skip(name, run, acknowledged, result);
  Drain(name, run, result);
  return std::move(result.steps);
}

}  // namespace tool::fleet
