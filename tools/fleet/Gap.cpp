#include "fleet/Gap.h"

#include <algorithm>

#include "Failure.h"

namespace tool::fleet {
namespace {

Json ToJson(const MissingFrames& missing) {
  return {{"first", missing.ids ? Json(missing.ids->first) : Json()},
          {"last", missing.ids && !missing.to_end ? Json(missing.ids->last) : Json()},
          {"count", missing.count},
          {"to_end", missing.to_end}};
}

// A negative number is converted to some other one without a word.
std::uint64_t NumberIn(const Json& json) {
  if (!json.is_number_unsigned()) throw Failure(ExitCode::kFile, "this is no gap");
  return json;
}

MissingFrames MissingIn(const Json& json) {
  MissingFrames missing;
  missing.count = NumberIn(json.at("count"));
  missing.to_end = json.at("to_end");
  if (!json.at("first").is_null()) {
    const std::uint64_t first = NumberIn(json.at("first"));
    const std::uint64_t last = json.at("last").is_null() ? first : NumberIn(json.at("last"));
    if (last < first) throw Failure(ExitCode::kFile, "this is no gap");
    missing.ids = {first, last};
  }
  return missing;
}

}  // namespace

void MissingFrames::Add(const MissingFrames& more) {
  count += more.count;
  to_end |= more.to_end;
  if (!more.ids) return;
  ids = ids ? Range{std::min(ids->first, more.ids->first), std::max(ids->last, more.ids->last)}
            : more.ids;
}

void Gap::Add(const PacketHeader& lost) {
  if (lost.kind != Kind::kStrips && lost.kind != Kind::kImages) {
    ++others;
    return;
  }
  const bool image = lost.kind == Kind::kImages;
  // An image counts once, with its last part.
  const std::uint64_t count = image ? std::uint64_t{lost.part == lost.parts} : lost.strips;
  (image ? images : strips).Add({lost.frames, count, false});
}

void Gap::Add(const Gap& more) {
  strips.Add(more.strips);
  images.Add(more.images);
  others += more.others;
}

bool Gap::Empty() const {
  const auto none = [](const MissingFrames& missing) { return missing == MissingFrames(); };
  return none(strips) && none(images) && others == 0;
}

Json ToJson(const Gap& gap) {
  return {{"reason", gap.reason},
          {"run", gap.run},
          {"strips", ToJson(gap.strips)},
          {"images", ToJson(gap.images)},
          {"others", gap.others}};
}

Gap GapIn(const Json& json) {
  try {
    return {json.at("reason"), json.at("run"), MissingIn(json.at("strips")),
            MissingIn(json.at("images")), NumberIn(json.at("others"))};
  } catch (const Json::exception&) {
    throw Failure(ExitCode::kFile, "this is no gap");
  }
}

}  // namespace tool::fleet
