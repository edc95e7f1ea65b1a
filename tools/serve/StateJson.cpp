#include "serve/StateJson.h"

#include <array>

#include "serve/LogLines.h"
#include "tessaline/capture_statistics.h"
#include "tessaline/tessaline.h"
#include "watch/Counters.h"

namespace tool::serve {
namespace {

Json TemperaturesJson(const SensorState& state) {
  Json json = Json::object();
  if (state.processor_temperature) json["processor"] = *state.processor_temperature;
  return json;
}

}  // namespace

std::string_view NameOf(Stream stream) {
  constexpr std::array<std::string_view, 3> kNames{"profile", "image", "state"};
  return kNames.at(static_cast<std::size_t>(stream));
}

Json SensorJson(const ServedSensor& sensor, const PictureMaker& pictures) {
  const SensorState state = sensor.state();
  const LineQuality quality = pictures.quality();
  const Feed::Counts counts = Feed::Instance().counts();
  const Region& region = state.region;
  return {{"version", TESSALINE_VERSION},
          {"model", sensor.model().code()},
          {"sensor", sensor.model().family().sensor.name},
          {"virtual", sensor.session().on_virtual_board()},
          {"mode", state.images ? "images" : "strips"},
          {"acquisition", state.acquiring},
          {"laser", state.laser},
          {"ready", !state.failure},
          {"failure", state.failure ? Json(*state.failure) : Json()},
          {"settings", SettingsJson(state.settings)},
          {"region",
           {{"x", region.x}, {"y", region.y}, {"width", region.width}, {"height", region.height}}},
          {"calibration",
           {{"unit", state.unit},
            {"source", state.calibration.empty() ? Json() : Json(state.calibration)}}},
          {"rates",
           {{"profiles", state.profiles_per_second},
            {"images", state.images_per_second},
            {"megabytes", state.megabytes_per_second}}},
          {"counters",
           {{"strips", counts.strips},
            {"images", counts.images},
            {"bytes", counts.bytes},
            {"missing_ids", state.missing_ids},
            {"malformed", state.malformed},
            {"fpga_lost", state.fpga_lost},
            {"triggers_lost", state.triggers_lost}}},
          {"quality",
           {{"points", quality.points},
            {"missing_percent", quality.missing_percent},
            {"saturated_percent", quality.saturated_percent},
            {"mean_peak", quality.mean_peak}}},
          {"temperatures", TemperaturesJson(state)},
          {"laser_seconds", state.laser_seconds}};
}

Json ClientsJson(const StreamHub& hub) {
  Json list = Json::array();
  for (const auto& [id, weak] : hub.clients()) {
    const auto client = weak.lock();
    if (!client) continue;
    const StreamCounts& counts = client->counts();
    list.push_back({{"id", id},
                    {"stream", NameOf(client->stream())},
                    {"peer", client->peer()},
                    {"rate", client->rate()},
                    {"sent", counts.sent},
                    {"sent_bytes", counts.sent_bytes},
                    {"dropped_frames", counts.dropped},
                    {"dropped_bytes", counts.dropped_bytes}});
  }
  return list;
}

Json StatisticsJson() {
  Json json{{"fpga_lost", GetCallbackLostNum()}, {"triggers_lost", GetXtrigLostSta()}};
  for (const auto& [name, number] : kCaptureStreams) json[name] = CaptureCounters(number);
  json["recorders"] = {{"count", Feed::Instance().TapCount()},
                       {"dropped_frames", Feed::Instance().DroppedByTaps()}};
  return json;
}

}  // namespace tool::serve
