#include "fleet/FleetOptions.h"

namespace tool::fleet {
namespace {

constexpr About kFleetAbout{
    "fleet", "Shows and sets the sensors that publish", Touches::kNothing,
    "The sensors are those that \"tessaline publish\" has joined to the server.",
    "  tessaline fleet status\n"
    "  tessaline fleet set 'line3.*' --recipe belt.json"};
constexpr About kStatusAbout{
    "status", "Lists the sensors, how they are, and how many messages are not stored yet",
    Touches::kNothing, "", "  tessaline fleet status 'line3.*' --json"};
constexpr About kSetAbout{
    "set", "Makes settings on several sensors, or on none", Touches::kLight,
    "Asks all of them first. If one does not answer, or cannot do what the recipe says, nothing is "
    "changed. If one fails while it is set, the others get back the settings from before.",
    "  tessaline fleet set 'line3.*' --recipe belt.json"};
constexpr About kShowAbout{
    "show", "Hands a sensor's frames, as they are published, to an application on this machine",
    Touches::kNothing,
    "Starts the application with the virtual board of the sensor's product, which hands it the "
    "frames; without an application, \"tessaline serve\", which shows them in a browser. What the "
    "application sets stays on this machine: \"tessaline fleet set\" sets the sensor. Frames that "
    "the application does not take in time are left out; the server keeps them for subscribers all "
    "the same.",
    "  tessaline fleet show line3.left\n"
    "  tessaline fleet show line3.left -- tessaline serve --port 9000\n"
    "  tessaline fleet show line3.left -- ./my_application"};
constexpr About kAddAbout{
    "add", "Makes the place on the server where a sensor's frames are kept", Touches::kNothing,
    "Wherever everybody may do everything, publishers do it themselves. A sensor with a key of its "
    "own may not, lest it reads what others send: an operator does it once for each.",
    "  tessaline fleet add line3.left --nkey operator.nk"};
constexpr About kForgetAbout{
    "forget", "Removes sensors or a subscriber that do not come back from the server",
    Touches::kSets,
    "What is kept of a sensor goes, too, what a subscriber has not stored only with --discard. A "
    "subscriber that does not come back (--as) must be forgotten, because everything is kept for "
    "it.",
    "  tessaline fleet forget line3.left\n"
    "  tessaline fleet forget 'line3.*' --as quality"};
constexpr About kKeyAbout{
    "key", "Makes a key by which a server knows a user", Touches::kNothing,
    "Writes the secret half to a file for --nkey, and shows the public half for the server.",
    "  tessaline fleet key -o left.nk"};
constexpr About kRightsAbout{
    "rights", "Shows what a server has to allow a user, for its configuration", Touches::kNothing,
    "A sensor may write its own messages, remove them, and answer questions; a subscriber may read "
    "those of all sensors; an operator may ask and set all sensors, and make and remove places.",
    "  tessaline fleet rights --role sensor --name line3.left --public-key U..."};

}  // namespace

CLI::App& FleetOptions::Describe(CLI::App& parent, CommonOptions& common) {
  CLI::App& group = AddGroup(parent, kFleetAbout);
  const auto command = [&](const About& about, bool asks) {
    CLI::App& app = AddCommand(group, about, common);
    if (asks) {
      app.add_option("--patience", patience, "Seconds to wait for answers")
          ->check(NumberIn(0.05, 60))
          ->type_name("SECONDS")
          ->capture_default_str();
      server.Describe(app);
    }
    return &app;
  };
  status = command(kStatusAbout, true);
  status->add_option("pattern", pattern, "Which sensors, such as 'line3.*' (default: all)")
      ->type_name("PATTERN");
  set = command(kSetAbout, true);
  set->add_option("pattern", pattern, "Which sensors, such as 'line3.*'")
      ->type_name("PATTERN")
      ->required();
  set->add_option("--recipe", recipe, "File with settings (tessaline recipe)")
      ->type_name("FILE")
      ->required();
  show = command(kShowAbout, true);
  show->add_option("sensor", pattern, "The sensor's name")->type_name("NAME")->required();
  show->add_option("application", application, "The application and its arguments, behind --")
      ->type_name("-- APPLICATION ...");
  add = command(kAddAbout, true);
  add->add_option("sensor", pattern, "The sensor's name")->type_name("NAME")->required();
  place.Describe(*add);
  forget = command(kForgetAbout, true);
  forget->add_option("pattern", pattern, "Which sensors, such as line3.left")
      ->type_name("PATTERN")
      ->required();
  forget->add_option("--as", subscriber, "Only this subscriber's place, not the sensors")
      ->type_name("NAME");
  forget->add_flag("--discard", discard, "Even if something is not stored yet");
  make_key = command(kKeyAbout, false);
  make_key->add_option("-o,--output", output, "File for the secret half; it must not exist")
      ->type_name("FILE")
      ->required();
  rights = command(kRightsAbout, false);
  rights->add_option("--role", role, "sensor, subscriber or operator")
      ->check(CLI::IsMember({"sensor", "subscriber", "operator"}))
      ->type_name("ROLE")
      ->capture_default_str();
  rights->add_option("--name", name, "The sensor's or the subscriber's name")
      ->type_name("NAME")
      ->required();
  rights->add_option("--public-key", key, "What \"tessaline fleet key\" has shown")
      ->type_name("KEY")
      ->required();
  return group;
}

}  // namespace tool::fleet
