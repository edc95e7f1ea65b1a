#include "serve/Limits.h"

#include <string>

#include "Recipe.h"
#include "SensorLimits.h"

namespace tool::serve {

Json LimitsJson(const Model& model) {
  const SensorLimits& sensor = LimitsOf(model);
  const Region whole = WholeSensor(model);
  Json json{{"model", model.code()}, {"sensor", sensor.sensor}};
  json["region"] = {{"sensor_width", whole.width},      {"sensor_height", whole.height},
                    {"x_step", sensor.across},          {"y_step", sensor.down},
                    {"width_step", sensor.across},      {"height_step", sensor.height},
                    {"least_width", sensor.least_width}};
  ForEachSetting([&json](const Setting& setting, auto) {
    const std::string key(setting.key);
    if (json.contains(key)) return;
    if (!setting.words.empty()) {
      json[key] = {{"words", setting.words}};
    } else {
      json[key] = {{"low", setting.low}, {"high", setting.high}, {"unit", setting.unit}};
    }
  });
  json[std::string(setting::kExposure.key)]["most"] = setting::kMostExposures;
  json[std::string(setting::kGain.key)] = {
      {"low", sensor.least_gain},
      {"high", sensor.most_gain},
      {"unit", sensor.gain_unit.substr(sensor.gain_unit.rfind(' ') + 1)}};
  return json;
}

}  // namespace tool::serve
