#include "record/BagQuery.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <string>
#include <utility>

namespace tool {
namespace {

// The file's numbers of these topics, as a list of SQL.
std::string NumbersOf(const BagReader& reader, const std::vector<Topic>& topics) {
  std::vector<std::int64_t> numbers;
  for (const auto& [number, topic] : reader.topics()) {
    if (std::ranges::find(topics, topic) != topics.end()) numbers.push_back(number);
  }
  return fmt::format("({})", fmt::join(numbers, ","));
}

std::vector<Topic> AllTopics() {
  std::vector<Topic> topics;
  for (const TopicEntry& entry : kTopics) topics.push_back(entry.topic);
  return topics;
}

// Where messages of these stamps begin and end. The index knows it, so that nothing before is read.
// Others may lie between them, because stamps are not quite in the order of arrival.
std::pair<std::int64_t, std::int64_t> IdsOf(const BagReader& reader, const StampRange& stamps) {
  constexpr StampRange kAll;
  if (stamps.first == kAll.first && stamps.last == kAll.last) return {kAll.first, kAll.last};
  Statement ids(reader.database(),
                "SELECT min(id), max(id) FROM messages WHERE timestamp BETWEEN ? AND ?");
  ids.Bind(0, stamps.first);
  ids.Bind(1, stamps.last);
  ids.Next();
  return {ids.Number(0), ids.Number(1)};
}

}  // namespace

// The sign + keeps SQLite from reading in the order of stamps and sorting whole messages.
BagQuery::BagQuery(const BagReader& reader, const std::vector<Topic>& topics,
                   const StampRange& range)
    : reader_(reader),
      messages_(reader.database(),
                fmt::format("SELECT id, topic_id, timestamp, data FROM messages WHERE "
                            "id BETWEEN ? AND ? AND +timestamp BETWEEN ? AND ? "
                            "AND +topic_id IN {} ORDER BY id",
                            NumbersOf(reader, topics))) {
  const auto [first_id, last_id] = IdsOf(reader, range);
  messages_.Bind(0, first_id);
  messages_.Bind(1, last_id);
  messages_.Bind(2, range.first);
  messages_.Bind(3, range.last);
}

std::optional<StoredMessage> BagQuery::Next() {
  // A statement that has ended or failed would start anew.
  if (std::exchange(ended_, true)) return std::nullopt;
  while (messages_.Next()) {
    // What SQLite takes for equal may still be another number, if it is not a whole one.
    const auto topic = reader_.topics().find(messages_.Number(1));
    if (topic == reader_.topics().end()) continue;
    ended_ = false;
    return StoredMessage{.id = messages_.Number(0),
                         .topic = topic->second,
                         .stamp_ns = messages_.Number(2),
                         .cdr = messages_.Blob(3)};
  }
  return std::nullopt;
}

std::optional<StampRange> StampsOf(const BagReader& reader) {
  // Each is a look into the index, and at those of other sensors that are still earlier or later.
  const std::string of_sensor =
      reader.sensor().empty() ? "" : "WHERE topic_id IN " + NumbersOf(reader, AllTopics());
  const auto end = [&](const char* order) -> std::optional<std::int64_t> {
    Statement stamp(reader.database(),
                    fmt::format("SELECT timestamp FROM messages {} ORDER BY timestamp {} LIMIT 1",
                                of_sensor, order));
    if (!stamp.Next()) return std::nullopt;
    return stamp.Number(0);
  };
  const auto first = end("ASC");
  const auto last = end("DESC");
  if (!first || !last) return std::nullopt;
  return StampRange{*first, *last};
}

std::array<std::int64_t, kTopics.size()> CountMessages(const BagReader& reader) {
  std::string sums;
  for (const TopicEntry& entry : kTopics) {
    sums += fmt::format("{}sum(topic_id IN {})", sums.empty() ? "" : ", ",
                        NumbersOf(reader, {entry.topic}));
  }
  Statement count(reader.database(), "SELECT " + sums + " FROM messages");
  count.Next();
  std::array<std::int64_t, kTopics.size()> counts{};
  for (std::size_t i = 0; i < counts.size(); ++i) counts[i] = count.Number(static_cast<int>(i));
  return counts;
}

}  // namespace tool
