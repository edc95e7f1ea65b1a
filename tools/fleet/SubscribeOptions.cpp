#include "fleet/SubscribeOptions.h"

namespace tool::fleet {
namespace {

constexpr About kSubscribeAbout{
    "subscribe", "Stores the frames that sensors publish, in one recording", Touches::kNothing,
    "Takes what the server keeps of all sensors whose names match, also of those that come later, "
    "until Ctrl-C. * stands for one word of a name, > for all that follow. The recording has each "
    "sensor's frames in their order, each once, and a message for all that is missing. The server "
    "keeps a message until it is in the file. A file that was begun before is continued.\n"
    "One subscriber at a time has a name. Another one (--as) gets everything, too, from the moment "
    "it is first there.",
    "  tessaline subscribe 'line3.*' -o all.db3\n"
    "  tessaline subscribe '>' -o all.db3 --merge time\n"
    "  tessaline subscribe line3.left -o left.db3 --as quality --once"};

constexpr double kMostPatience = 60;

}  // namespace

CLI::App& SubscribeOptions::Describe(CLI::App& parent, CommonOptions& common) {
  CLI::App& app = AddCommand(parent, kSubscribeAbout, common);
  app.add_option("pattern", pattern, "Which sensors, such as line3.left or 'line3.*'")
      ->type_name("PATTERN")
      ->required();
  app.add_option("-o,--output", output, "File to write or continue")->type_name("FILE")->required();
  app.add_option("--as", name, "The subscriber's name")->type_name("NAME")->capture_default_str();
  app.add_option("-n,--frames", frames, "Frames to store, of all sensors together")
      ->check(NumberIn(1, 1e15))
      ->type_name("COUNT");
  app.add_option("-t,--time", seconds, "Seconds to run")
      ->check(NumberIn(0.001, kMostSeconds))
      ->type_name("SECONDS");
  app.add_flag("--once", once, "End when everything is stored that is on the server");
  app.add_flag("--strict", strict, "Exit status 1 if anything is missing");
  app.add_option("--merge", merge,
                 "Order of different sensors' frames: time or encoder (default: as they come)")
      ->check(CLI::IsMember({"time", "encoder"}))
      ->type_name("BY");
  app.add_option("--patience", patience, "Seconds that --merge waits for a silent sensor")
      ->check(NumberIn(0.01, kMostPatience))
      ->type_name("SECONDS")
      ->capture_default_str();
  server.Describe(app);
  return app;
}

}  // namespace tool::fleet
