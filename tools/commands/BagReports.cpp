#include "commands/BagReports.h"

#include <algorithm>

#include "Counted.h"
#include "record/BagSource.h"
#include "record/BagTime.h"

namespace tool {
namespace {

constexpr std::size_t kLongestText = 80;  // of one that the recording brings along

double Seconds(std::int64_t ns, const Contents& contents) {
  return SecondsBetween(contents.span().from_ns.value_or(ns), ns);
}

std::string StateText(const BagFindings& findings) {
  if (findings.closed) return "closed properly";
  if (findings.synced_ns == 0) return "not closed, and nothing tells of a sync";
  return fmt::format(
      "not closed: whole up to its last sync, at {:.3f} s; later messages may be "
      "missing",
      Seconds(findings.synced_ns, findings.contents));
}

Json StateJson(const BagFindings& findings) {
  return {
      {"version", findings.version},
      {"sensor", findings.sensor.empty() ? Json() : Json(findings.sensor)},
      {"closed", findings.closed},
      {"synced_ns", findings.synced_ns},
      {"synced_seconds",
       findings.synced_ns == 0 ? Json() : Json(Seconds(findings.synced_ns, findings.contents))}};
}

std::string IdsText(const IdRange& ids) {
  return ids.first == ids.last ? fmt::format("{}", ids.first)
                               : fmt::format("{}-{}", ids.first, ids.last);
}

std::string IdsText(const std::vector<IdRange>& ranges, bool more) {
  std::string text;
  for (const IdRange& ids : ranges) text += (text.empty() ? "" : ", ") + IdsText(ids);
  return text + (more ? ", ..." : "");
}

// Those that no gap message names.
std::string UnexplainedText(const FrameCount& frames) {
  const std::vector<IdRange> first = frames.FirstUnexplained();
  return IdsText(first, first.size() >= GapMatch::kMostTold);
}

std::string MissingText(const FrameCount& frames) {
  const std::uint64_t named = frames.missing() - frames.unexplained();
  const std::string all = IdsText(frames.first_gaps(), frames.gaps() > frames.first_gaps().size());
  if (named == 0) return all;
  if (frames.unexplained() == 0) return all + ", named by gap messages";
  return fmt::format("{}; named by gap messages but for {}", all, UnexplainedText(frames));
}

void PrintFrames(const Session& session, const char* name, const FrameCount& frames) {
  if (frames.frames() == 0) return session.Print("{:<11}none\n", name);
  std::string rest;
  if (frames.Rate() > 0) rest += fmt::format(", {:.1f}/s", frames.Rate());
  if (frames.missing() > 0) {
    rest += fmt::format("; {} missing: {}", Counted(frames.missing(), "id"), MissingText(frames));
  }
  if (frames.restarts() > 0) {
    rest += fmt::format("; the count began anew {}", Counted(frames.restarts(), "time"));
  }
  session.Print("{:<11}{}, ids {} to {}{}\n", name, frames.frames(), frames.lowest(),
                frames.highest(), rest);
}

// What a gap message says of frames of one kind, with a comma in front.
std::string LostText(const char* name, bool end_known, std::uint64_t first, std::uint64_t last,
                     std::uint64_t count) {
  if (!end_known) return first == 0 ? "" : fmt::format(", {}s from {} on", name, first);
  return count == 0 ? "" : fmt::format(", {} {}", Counted(count, name), IdsText({first, last}));
}

void PrintGaps(const Session& session, const Contents& contents) {
  for (const GapMessage& gap : contents.first_gaps()) {
    std::string text =
        LostText("profile", gap.end_known, gap.strips_first, gap.strips_last, gap.strips_count) +
        LostText("image", gap.end_known, gap.images_first, gap.images_last, gap.images_count);
    if (gap.others > 0) text += ", " + Counted(gap.others, "other message");
    session.Print("{:<11}{}{}, in run {}\n", "gap", gap.reason, text, gap.run);
  }
  const std::uint64_t all = contents.Of(Topic::kGaps).count;
  if (all > contents.first_gaps().size()) {
    session.Print("{:<11}{} more\n", "gap", all - contents.first_gaps().size());
  }
}

Json RangesJson(const std::vector<IdRange>& ranges) {
  Json json = Json::array();
  for (const auto& [first, last] : ranges) json.push_back({first, last});
  return json;
}

Json GapsJson(const Contents& contents) {
  Json json = Json::array();
  for (const GapMessage& gap : contents.first_gaps()) {
    const auto ids = [&](std::uint64_t first, std::uint64_t last, std::uint64_t count) -> Json {
      return {{"first", first},
              {"last", gap.end_known ? Json(last) : Json()},
              {"count", gap.end_known ? Json(count) : Json()}};
    };
    json.push_back({{"reason", gap.reason},
                    {"run", gap.run},
                    {"stamp_ns", gap.stamp_ns},
                    {"profiles", ids(gap.strips_first, gap.strips_last, gap.strips_count)},
                    {"images", ids(gap.images_first, gap.images_last, gap.images_count)},
                    {"others", gap.others}});
  }
  return json;
}

Json FramesJson(const FrameCount& frames) {
  return {{"frames", frames.frames()},
          {"first_id", frames.frames() == 0 ? Json() : Json(frames.lowest())},
          {"last_id", frames.frames() == 0 ? Json() : Json(frames.highest())},
          {"rate", frames.Rate()},
          {"missing_ids", frames.missing()},
          {"gaps", frames.gaps()},
          {"first_gaps", RangesJson(frames.first_gaps())},
          {"unexplained_ids", frames.unexplained()},
          {"first_unexplained", RangesJson(frames.FirstUnexplained())},
          {"restarts", frames.restarts()},
          {"clock_steps", frames.clock_steps()}};
}

// A value of a device message on one line.
std::string NoteText(const nlohmann::json& value) {
  const std::string text =
      value.is_string() ? value.get<std::string>()
                        : value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  return text.size() <= kLongestText ? text : text.substr(0, kLongestText) + "...";
}

void PrintTopics(const Session& session, const Contents& contents) {
  for (const TopicEntry& entry : kTopics) {
    const Contents::Messages& messages = contents.Of(entry.topic);
    if (messages.count == 0) continue;
    const double seconds = contents.span().Seconds();
    const std::string rate =
        seconds > 0 ? fmt::format("{:9.1f}/s", static_cast<double>(messages.count) / seconds) : "";
    session.Print("  {:<22}{:>9} messages {:>12.3f} MB{}\n", entry.name, messages.count,
                  static_cast<double>(messages.bytes) / 1e6, rate);
  }
}

Json TopicsJson(const Contents& contents) {
  Json topics = Json::object();
  const double seconds = contents.span().Seconds();
  for (const TopicEntry& entry : kTopics) {
    const Contents::Messages& messages = contents.Of(entry.topic);
    topics[std::string(entry.name)] = {
        {"messages", messages.count},
        {"bytes", messages.bytes},
        {"rate", seconds > 0 ? static_cast<double>(messages.count) / seconds : 0},
        {"clock_steps", messages.clock_steps}};
  }
  return topics;
}

std::uint64_t HostClockSteps(const Contents& contents) {
  std::uint64_t steps = 0;
  for (const TopicEntry& entry : kTopics) steps += contents.Of(entry.topic).clock_steps;
  return steps;
}

std::string Ids(const DamagedPlace& place) {
  if (place.at_the_end) return fmt::format("rows {} to the end", place.first_id);
  return place.first_id == place.last_id
             ? fmt::format("row {}", place.first_id)
             : fmt::format("rows {} to {}", place.first_id, place.last_id);
}

Json CheckJson(const std::string& path, const BagFindings& findings) {
  const Contents& contents = findings.contents;
  Json json = StateJson(findings);
  json["file"] = path;
  json["damaged"] = findings.damaged();
  json["integrity"] = findings.integrity;
  Json& whole = json["whole"] = Json::array();
  for (const auto& stretch : findings.whole) {
    whole.push_back({{"from_seconds", Seconds(*stretch.span.from_ns, contents)},
                     {"to_seconds", Seconds(stretch.span.to_ns, contents)},
                     {"first_row", stretch.first_id},
                     {"last_row", stretch.last_id},
                     {"messages", stretch.messages},
                     {"profiles", stretch.strips},
                     {"images", stretch.images}});
  }
  json["whole_count"] = findings.whole_count;
  Json& places = json["unreadable"] = Json::array();
  for (const DamagedPlace& place : findings.places) {
    places.push_back({{"first_row", place.first_id},
                      {"last_row", place.at_the_end ? Json() : Json(place.last_id)}});
  }
  json["unreadable_count"] = findings.place_count;
  Json& bad = json["bad_messages"] = Json::array();
  for (const auto& [id, what] : findings.bad) bad.push_back({{"row", id}, {"what", what}});
  json["bad_message_count"] = findings.bad_count;
  json["profiles"] = FramesJson(contents.strips());
  json["images"] = FramesJson(contents.images());
  json["gap_messages"] = contents.Of(Topic::kGaps).count;
  json["first_gap_messages"] = GapsJson(contents);
  json["unexplained_ids"] = findings.Unexplained();
  json["host_clock_steps"] = HostClockSteps(contents);
  return json;
}

std::string NameOf(const std::string& path, const BagFindings& findings) {
  return BagSource(path, findings.sensor).Name();
}

template <typename List>
void PrintRest(const Session& session, const List& shown, std::uint64_t count) {
  if (count > shown.size()) session.Print("  and {} more\n", count - shown.size());
}

// Frames that are missing and should have been named.
void PrintUnexplained(const Session& session, const char* name, const FrameCount& frames) {
  if (frames.unexplained() == 0) return;
  session.Print("  MISSING  {}, and no gap message names {}: {}\n",
                Counted(frames.unexplained(), name), frames.unexplained() == 1 ? "it" : "them",
                UnexplainedText(frames));
}

const char* Verdict(const BagFindings& findings) {
  if (findings.damaged()) return "DAMAGED";
  return findings.Unexplained() > 0 ? "INCOMPLETE" : "whole";
}

void PrintCheck(const Session& session, const std::string& path, const BagFindings& findings) {
  const Contents& contents = findings.contents;
  session.Print("{}: {}; {}\n", NameOf(path, findings), Verdict(findings), StateText(findings));
  for (const auto& stretch : findings.whole) {
    session.Print("  whole    {:.3f} s to {:.3f} s: {}, {}, {}\n",
                  Seconds(*stretch.span.from_ns, contents), Seconds(stretch.span.to_ns, contents),
                  Counted(stretch.strips, "profile"), Counted(stretch.images, "image"),
                  Counted(stretch.messages, "message"));
  }
  PrintRest(session, findings.whole, findings.whole_count);
  for (const DamagedPlace& place : findings.places) {
    session.Print("  DAMAGED  {} cannot be read\n", Ids(place));
  }
  PrintRest(session, findings.places, findings.place_count);
  for (const auto& [id, what] : findings.bad) session.Print("  DAMAGED  row {}: {}\n", id, what);
  PrintRest(session, findings.bad, findings.bad_count);
  for (const std::string& line : findings.integrity) session.Print("  DAMAGED  SQLite: {}\n", line);
  if (findings.Unexplained() > 0) {
    PrintUnexplained(session, "profile", contents.strips());
    PrintUnexplained(session, "image", contents.images());
  }
  const std::uint64_t named = contents.strips().missing() + contents.images().missing() -
                              contents.strips().unexplained() - contents.images().unexplained();
  if (contents.Of(Topic::kGaps).count > 0) {
    session.Print("  {}, naming {}\n", Counted(contents.Of(Topic::kGaps).count, "gap message"),
                  Counted(named, "missing id"));
  }
  const std::uint64_t steps = HostClockSteps(contents);
  if (steps > 0) session.Print("  the host's clock went back {}\n", Counted(steps, "time"));
  const std::uint64_t ticks = contents.strips().clock_steps() + contents.images().clock_steps();
  if (ticks > 0) session.Print("  the device's clock went back {}\n", Counted(ticks, "time"));
  if (findings.damaged() && findings.whole_count > 0) {
    session.Print("\"tessaline bag cut\" copies what is whole into a new recording.\n");
  }
}

}  // namespace

void ReportContents(const Session& session, const std::string& path, const BagFindings& findings) {
  const Contents& contents = findings.contents;
  session.Print("{}: version {}, {}\n", NameOf(path, findings), findings.version,
                StateText(findings));
  for (const auto& [key, value] : contents.device().all().items()) {
    session.Print("{:<11}{}\n", key.substr(0, kLongestText), NoteText(value));
  }
  if (contents.span().from_ns) {
    session.Print("{:<11}{}, {:.3f} s long\n", "start", TextOfMoment(*contents.span().from_ns),
                  contents.span().Seconds());
  } else {
    session.Print("{:<11}no messages\n", "empty");
  }
  PrintTopics(session, contents);
  PrintFrames(session, "profiles", contents.strips());
  PrintFrames(session, "images", contents.images());
  PrintGaps(session, contents);
  const LossesMessage& losses = contents.losses();
  session.Print("{:<11}{} by the device, {} by the recorder, which also lost {}\n", "lost",
                Counted(losses.frames_by_device, "frame"), losses.frames_by_recorder,
                Counted(losses.messages_by_recorder, "other message"));
  session.Print("{:<11}{}\n", "log", Counted(contents.log_errors(), "error"));
  for (const auto& [name, count] : contents.events()) {
    session.Print("{:<11}{} {}\n", "event", name, count);
  }

  Json json = StateJson(findings);
  json["file"] = path;
  json["device"] = contents.device().all();
  json["start_ns"] = contents.span().from_ns ? Json(*contents.span().from_ns) : Json();
  json["seconds"] = contents.span().Seconds();
  json["topics"] = TopicsJson(contents);
  json["profiles"] = FramesJson(contents.strips());
  json["images"] = FramesJson(contents.images());
  json["gap_messages"] = contents.Of(Topic::kGaps).count;
  json["first_gap_messages"] = GapsJson(contents);
  json["lost"] = {{"frames_by_device", losses.frames_by_device},
                  {"frames_by_recorder", losses.frames_by_recorder},
                  {"messages_by_recorder", losses.messages_by_recorder}};
  json["log_errors"] = contents.log_errors();
  json["events"] = contents.events();
  json["damaged"] = findings.damaged();
  session.Emit(json);
}

void ReportSensors(const Session& session, const std::string& path,
                   const std::vector<BagFindings>& sensors) {
  Json json{{"file", path}, {"version", sensors.front().version}};
  json["closed"] = sensors.front().closed;
  json["synced_ns"] = sensors.front().synced_ns;
  session.Print("{}: version {}, {}, {}\n", path, sensors.front().version,
                Counted(sensors.size(), "sensor"),
                sensors.front().closed ? "closed properly" : "not closed");
  Json& list = json["sensors"] = Json::array();
  for (const BagFindings& findings : sensors) {
    const Contents& contents = findings.contents;
    session.Print("\n{:<11}{} {}, {:.3f} s long\n", "sensor", findings.sensor,
                  contents.device().Text("model").value_or(""), contents.span().Seconds());
    PrintFrames(session, "profiles", contents.strips());
    PrintFrames(session, "images", contents.images());
    PrintGaps(session, contents);
    list.push_back({{"sensor", findings.sensor},
                    {"model", contents.device().Text("model").value_or("")},
                    {"seconds", contents.span().Seconds()},
                    {"profiles", FramesJson(contents.strips())},
                    {"images", FramesJson(contents.images())},
                    {"gap_messages", contents.Of(Topic::kGaps).count},
                    {"first_gap_messages", GapsJson(contents)},
                    {"damaged", findings.damaged()}});
  }
  session.Emit(json);
}

void ReportCheck(const Session& session, const std::string& path,
                 const std::vector<BagFindings>& findings) {
  for (const BagFindings& sensor : findings) PrintCheck(session, path, sensor);
  if (findings.size() == 1) return session.Emit(CheckJson(path, findings.front()));
  Json json{{"file", path}, {"damaged", false}, {"unexplained_ids", 0}};
  Json& list = json["sensors"] = Json::array();
  std::uint64_t unexplained = 0;
  bool damaged = false;
  for (const BagFindings& sensor : findings) {
    damaged |= sensor.damaged();
    unexplained += sensor.Unexplained();
    list.push_back(CheckJson(path, sensor));
  }
  json["damaged"] = damaged;
  json["unexplained_ids"] = unexplained;
  session.Emit(json);
}

}  // namespace tool
