#include "fleet/RunOrder.h"

#include <algorithm>
#include <utility>

namespace tool::fleet {

RunOrder::RunOrder(const std::map<std::string, Used>& used, bool joins) : joins_(joins) {
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

bool RunOrder::Has(const PacketHeader& header) const {
  const auto known = runs_.find(header.run);
  return known != runs_.end() &&
         (header.sequence < known->second.next || known->second.early.contains(header.first()));
}

bool RunOrder::Misses(const Arrival& arrival) const {
  const std::string& name = arrival.header.run;
  if (Has(arrival.header)) return false;
  const auto leaves = [&] {
    return std::any_of(runs_.begin(), runs_.end(), [&](const auto& named) {
      return named.first != name && (!named.second.over || !named.second.early.empty());
    });
  };
  if (name != current_ && leaves()) return true;
  const auto known = runs_.find(name);
  std::uint64_t next = 1;
  if (known != runs_.end()) {
    if (known->second.joined) return false;
    next = known->second.next;
    for (const auto& [first, early] : known->second.early) {
      if (first > next) break;
      next = early.header.sequence + 1;
    }
  }
  return next <= std::min(arrival.acknowledged, arrival.header.first() - 1);
}

RunOrder::Run& RunOrder::Insert(Arrival arrival) {
  const std::uint64_t first = arrival.header.first();
  const auto [known, added] = runs_.try_emplace(arrival.header.run);
  Run& run = known->second;
  if (added && std::exchange(joins_, false)) {
    run.next = std::min(arrival.acknowledged, first - 1) + 1;
    run.joined = run.next > 1;
  }
  run.early.emplace(first, std::move(arrival));
  return run;
}

std::vector<RunOrder::Step> RunOrder::Add(Arrival arrival, std::vector<Arrival>& duplicates) {
  // What comes again says nothing about which run is sent now.
  if (Has(arrival.header)) {
    duplicates.push_back(std::move(arrival));
    return {};
  }
  Result result{{}, duplicates};
  const std::string name = arrival.header.run;
  const std::uint64_t acknowledged = std::min(arrival.acknowledged, arrival.header.first() - 1);
  if (name != current_) {
    for (auto& [other, run] : runs_) {
      if (other != name) Leave(other, run, result);
    }
    current_ = name;
  }
  Run& run = Insert(std::move(arrival));
  // What was acknowledged before this one was sent stands in front of it in the stream.
  Skip(name, run, acknowledged, result);
  Drain(name, run, result);
  return std::move(result.steps);
}

std::vector<RunOrder::Step> RunOrder::AddLate(Arrival arrival, std::vector<Arrival>& duplicates) {
  if (Has(arrival.header)) {
    duplicates.push_back(std::move(arrival));
    return {};
  }
  Result result{{}, duplicates};
  const std::string name = arrival.header.run;
  Drain(name, Insert(std::move(arrival)), result);
  return std::move(result.steps);
}

}  // namespace tool::fleet
