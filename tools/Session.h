#pragma once

#include <fmt/core.h>

#include <memory>
#include <string>
#include <utility>

#include "Failure.h"
#include "Json.h"
#include "LibraryOutput.h"
#include "Models.h"
#include "live/LiveSensor.h"

namespace tool {

// Adds what went wrong and what to do next: `error`, `advice`, `status`.
void AddTo(Json& json, const Failure& failure);
// The other way round; what is missing stays empty.
Failure FailureIn(const Json& json);

// The options of every sub-command.
struct CommonOptions {
  std::string model;
  std::string virtual_model;
  std::string optics;  // of the virtual board; empty: as the environment says
  std::string scene;   // likewise
  bool json = false;
  bool verbose = false;
  bool dry_run = false;
  bool quiet = false;   // no results at all: another command shows them
  bool direct = false;  // not through a daemon that has the sensor
};

// One run of the tool: its options and where its results go.
class Session {
 public:
  explicit Session(CommonOptions options);

  const CommonOptions& options() const { return options_; }
  bool json() const { return options_.json; }
  // Whether the board is the virtual one.
  bool on_virtual_board() const;
  // The same, or the sensor of the daemon is one.
  bool IsVirtual() const {
    return on_virtual_board() || (live() != nullptr && live_->is_virtual());
  }
  // Notes that the virtual board is another product's, if it is.
  void CompareBoard() const;
  // The model of the virtual board; empty on hardware.
  std::string Board() const;

  // The sensor that a daemon on this machine has: the command acts on that one. Null if there is no
  // daemon, and with --direct or a virtual board of our own.
  const live::LiveSensor* live() const;
  // This process becomes the daemon that has the sensor.
  void BecomeDaemon() { is_daemon_ = true; }
  // Throws a Failure that names the daemon if there is one: the command needs the device itself.
  void RequireNoDaemon() const;

  // Whether a product was requested at all.
  bool has_model() const { return !code_.empty(); }
  // The requested product, or that of the daemon; throws a Failure if there is none or it does not
  // exist.
  const Model& model() const;

  // Results for people; prints nothing with --json. On a virtual board the first one says so.
  template <typename... Args>
  void Print(fmt::format_string<Args...> format, Args&&... args) const {
    if (!json() && !options_.quiet) PrintText(fmt::format(format, std::forward<Args>(args)...));
  }
  // The result for programs; prints nothing without --json.
  void Emit(const Json& json) const;
  // What follows is not about the board.
  static void LeaveOutBoard() { told_of_board_ = true; }
  // One result of many, on a line of its own.
  void EmitLine(const Json& json) const;
  // Adds to a result that the board is virtual, if it is.
  void MarkVirtual(Json& json) const;
  // "# virtual board of a K3610", or nothing on hardware.
  std::string BoardLine() const;
  // Whether there has been a result for programs.
  static bool HasEmitted() { return emitted_; }
  static void Write(const std::string& text);
  // One line for people besides the result.
  template <typename... Args>
  void Note(fmt::format_string<Args...> format, Args&&... args) const {
    WriteNote(fmt::format(format, std::forward<Args>(args)...));
  }

 private:
  void PrintText(const std::string& text) const;
  static void WriteNote(const std::string& text);

  static inline bool emitted_ = false;
  static inline bool told_of_board_ = false;

  CommonOptions options_;
  std::string code_;
  mutable Model model_;
  bool is_daemon_ = false;
  mutable bool looked_for_daemon_ = false;
  mutable std::unique_ptr<live::LiveSensor> live_;
};

}  // namespace tool
