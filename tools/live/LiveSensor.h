#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "Failure.h"
#include "Json.h"
#include "Recipe.h"
#include "Region.h"
#include "ring/RecordRing.h"

namespace tool::live {

// The sensor that a "tessaline serve" on this machine owns, as other commands see it: they act on
// it instead of starting it anew. It speaks the daemon's HTTP interface through its Unix socket.
class LiveSensor {
 public:
  // Null: no daemon runs. Throws a Failure if one runs and does not answer, or may not be used.
  static std::unique_ptr<LiveSensor> Find();

  const std::string& model() const { return model_; }
  bool is_virtual() const { return virtual_; }
  // "tessaline serve (process 123)"
  std::string Name() const;
  // That it has ended.
  Failure Gone() const;

  // The answer's JSON. Throws a Failure as the daemon tells it.
  Json Get(const std::string& path) const;
  Json Send(const std::string& method, const std::string& path, const Json& body) const;

  void Change(const Recipe& recipe) const;
  Region CurrentRegion() const;
  // Throws a Failure unless it takes frames of this kind now.
  void RequireFrames(bool images) const;

  // All frames from now on, as records. They come until the connection is closed.
  struct Frames {
    ring::RecordRing ring;
    int connection;
  };
  Frames TakeFrames(const std::string& what, unsigned megabytes) const;

 private:
  LiveSensor(std::string path, pid_t process);
  int Open() const;
  // What an exchange with the daemon gives. Throws a Failure if it says nothing.
  template <typename Exchange>
  auto Answer(const Exchange& exchange) const;

  const std::string path_;
  const pid_t process_;
  std::string model_;
  bool virtual_ = false;
};

// Whether the daemon has ended, or has closed the connection.
bool HasEnded(int connection);

}  // namespace tool::live
