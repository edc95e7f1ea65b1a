#include "fleet/PlaceOptions.h"

#include "Command.h"

namespace tool::fleet {
namespace {

constexpr unsigned kMostReplicas = 5;
constexpr double kMostPlaceMegabytes = 1 << 20;

}  // namespace

void PlaceOptions::Describe(CLI::App& app) {
  app.add_option("--replicas", replicas,
                 "On how many servers frames are kept (default: 3, or as many as there are)")
      ->check(CLI::Range(1U, kMostReplicas))
      ->type_name("COUNT");
  app.add_option("--keep", megabytes,
                 "Megabytes that a new place on the server holds at most (default: all it has)")
      ->check(NumberIn(1, kMostPlaceMegabytes))
      ->type_name("MB");
}

}  // namespace tool::fleet
