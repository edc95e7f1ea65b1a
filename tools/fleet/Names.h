#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tool::fleet {

// Several sensors at once: their names (see SensorName.h), in which * stands for one word, and >
// for all that follow.
bool IsPattern(std::string_view text);
bool Matches(std::string_view pattern, std::string_view name);

// Throws a Failure (ExitCode::kUsage) unless it is one word.
void RequireSubscriberName(std::string_view name);

// Where a sensor's messages go: "tessaline.data.strips.line3.left". A pattern gives the subjects of
// all sensors that match it, a kind of "*" all kinds.
std::string DataSubject(std::string_view kind, std::string_view sensor);
// That it is there, and how it is, each second. Not stored.
std::string PresenceSubject(std::string_view sensor);
// Questions and orders to it. Without a sensor: to all.
std::string ControlSubject(std::string_view verb, std::string_view sensor);
// Where the server sends what a subscriber is to store.
std::string DeliverySubject(std::string_view subscriber, std::string_view sensor);

// The subscriber for whom everything is kept from the first message on.
inline constexpr const char* kArchive = "archive";

enum class Role { kSensor, kSubscriber, kOperator };

// Where answers come to somebody, so that the server can keep them from others. All operators are
// alike.
std::string InboxPrefix(Role role, std::string_view name);

// The stream in which the server stores its messages. Dots are not allowed in there.
std::string StreamName(std::string_view sensor);
// None: the stream is not one of ours.
std::optional<std::string> SensorOfStream(std::string_view stream);

}  // namespace tool::fleet
