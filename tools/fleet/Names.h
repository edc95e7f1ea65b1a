#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tool::fleet {

// Names of sensors, such as "line3.left": words of letters, digits, - and _ with dots between.
// In a pattern, * stands for one word, and > for all that follow.

inline constexpr std::size_t kMostNameBytes = 100;
inline constexpr const char* kNameAdvice =
    "a name has words of letters, digits, - and _ with dots between, such as line3.left";

bool IsName(std::string_view text);
bool IsPattern(std::string_view text);
bool Matches(std::string_view pattern, std::string_view name);

// Where a sensor's messages go: "tessaline.data.strips.line3.left". A pattern gives the subjects of
// all sensors that match it, a kind of "*" all kinds.
std::string DataSubject(std::string_view kind, std::string_view sensor);
// That it is there, and how it is, each second. Not stored.
std::string PresenceSubject(std::string_view sensor);
// Questions and orders to it.
std::string ControlSubject(std::string_view verb, std::string_view sensor);
// Where the server sends what a subscriber is to store.
std::string DeliverySubject(std::string_view subscriber, std::string_view sensor);

// The stream in which the server stores its messages. Dots are not allowed in there.
std::string StreamName(std::string_view sensor);
// None: the stream is not one of ours.
std::optional<std::string> SensorOfStream(std::string_view stream);

}  // namespace tool::fleet
