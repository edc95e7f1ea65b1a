#include "fleet/Rights.h"

#include <fmt/format.h>

#include <vector>

#include "fleet/Names.h"

namespace tool::fleet {
namespace {

struct Subjects {
  std::vector<std::string> publish;
  std::vector<std::string> subscribe;
};

// Not to make its stream: with a configuration of its choice it would have what others send.
Subjects OfSensor(const std::string& name) {
  const std::string stream = StreamName(name);
  return {{DataSubject("*", name), PresenceSubject(name), ControlSubject("status", name),
           "$JS.API.STREAM.INFO." + stream, "$JS.API.STREAM.PURGE." + stream,
           "$JS.API.CONSUMER.LIST." + stream,
           fmt::format("$JS.API.CONSUMER.INFO.{}.{}", stream, kArchive)},
          {ControlSubject("*", name), ControlSubject("status", ""),
           InboxPrefix(Role::kSensor, name) + ".>"}};
}

// Streams are named by the server, and a wildcard stands for a whole word only.
Subjects OfSubscriber(const std::string& name) {
  return {{"$JS.API.STREAM.NAMES", "$JS.API.STREAM.INFO.*", "$JS.API.STREAM.MSG.GET.*",
           fmt::format("$JS.API.CONSUMER.INFO.*.{}", name),
           fmt::format("$JS.API.CONSUMER.DURABLE.CREATE.*.{}", name),
           fmt::format("$JS.ACK.*.{}.>", name)},
          {DeliverySubject(name, ">"), InboxPrefix(Role::kSubscriber, name) + ".>"}};
}

Subjects OfOperator() {
  return {{"tessaline.control.>", "$JS.API.STREAM.NAMES", "$JS.API.STREAM.INFO.*",
           "$JS.API.STREAM.CREATE.*", "$JS.API.STREAM.DELETE.*", "$JS.API.CONSUMER.LIST.*",
           "$JS.API.CONSUMER.DELETE.*.*", fmt::format("$JS.API.CONSUMER.INFO.*.{}", kArchive),
           fmt::format("$JS.API.CONSUMER.DURABLE.CREATE.*.{}", kArchive)},
          {"tessaline.presence.>", "tessaline.data.>", InboxPrefix(Role::kOperator, "") + ".>"}};
}

std::string List(const std::vector<std::string>& subjects) {
  std::string text;
  for (const std::string& subject : subjects) text += fmt::format("      \"{}\"\n", subject);
  return text;
}

}  // namespace

std::string RightsOf(const std::string& role, const std::string& name, const std::string& key) {
  const Subjects subjects = role == "sensor"       ? OfSensor(name)
                            : role == "subscriber" ? OfSubscriber(name)
                                                   : OfOperator();
  return fmt::format(
      "{{ # {} {}\n"
      "  nkey: {}\n"
      "  permissions: {{\n"
      "    publish: [\n{}    ]\n"
      "    subscribe: [\n{}    ]\n"
      "    allow_responses: true\n"
      "  }}\n"
      "}}\n",
      role, name, key, List(subjects.publish), List(subjects.subscribe));
}

}  // namespace tool::fleet
