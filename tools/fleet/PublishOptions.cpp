#include "fleet/PublishOptions.h"

namespace tool::fleet {
namespace {

constexpr About kPublishAbout{
    "publish", "Sends the sensor's frames to a server that keeps them until they are stored",
    Touches::kLight,
    "Frames, events, log and statistics go to a NATS server with JetStream, or a cluster, and stay "
    "there until \"tessaline subscribe\" has stored them. With a command behind --, runs that "
    "application and sends what the library hands to it; while \"tessaline serve\" has the sensor, "
    "sends its frames; else takes frames itself, with the laser on, until Ctrl-C or --time.\n"
    "While the server cannot be reached, frames wait in memory and then in the file of --store. "
    "When that is full, too, the newest or the oldest are dropped, counted, and named in a message "
    "of their own. Nothing is lost unnamed.",
    "  tessaline publish --name line3.left --virtual K3610\n"
    "  tessaline publish tls://hub:4222 --name line3.left --nkey left.nk --store /data/left.store\n"
    "  tessaline publish nats://hub:4222 --name line3.left -- ./my_application"};

constexpr double kMostMegabytes = 1 << 20;
constexpr double kMostDrain = 3600;

}  // namespace

CLI::App& PublishOptions::Describe(CLI::App& parent, CommonOptions& common) {
  CLI::App& app = AddCommand(parent, kPublishAbout, common);
  // An application behind -- is not taken for a server.
  app.validate_positionals();
  app.add_option("server", url, "The server's URL, as with --server")
      ->type_name("URL")
      ->check(CLI::Validator(
          [](const std::string& text) {
            return text.find("://") == text.npos ? text + " is no URL" : std::string();
          },
          ""));
  app.add_option("--name", name, "The sensor's name in the fleet, such as line3.left")
      ->type_name("NAME")
      ->required();
  server.Describe(app);
  app.add_option("--store", store, "File for what waits when the memory is full (default: none)")
      ->type_name("FILE");
  app.add_option("--store-size", store_megabytes, "Megabytes that it may have")
      ->check(NumberIn(1, kMostMegabytes))
      ->type_name("MB")
      ->capture_default_str();
  app.add_option("--drop", drop, "What goes when there is no room: newest or oldest")
      ->check(CLI::IsMember({"newest", "oldest"}))
      ->type_name("WHICH")
      ->capture_default_str();
  place.Describe(app);
  app.add_option("--drain", drain_seconds, "Seconds at the end to send what still waits")
      ->check(NumberIn(0, kMostDrain))
      ->type_name("SECONDS")
      ->capture_default_str();
  source.Describe(app, {"publish", "published"}, /*megabytes=*/64);
  return app;
}

}  // namespace tool::fleet
