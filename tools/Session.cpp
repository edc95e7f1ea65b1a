#include "Session.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Failure.h"
#include "Printable.h"
#include "VirtualBoard.h"

namespace tool {
namespace {

std::string ChooseModel(const CommonOptions& options) {
  for (const std::string& choice :
       {options.model, options.virtual_model, Environment("TESSALINE_MODEL"),
        Environment("TESSALINE_BOARD")}) {
    if (!choice.empty()) return choice;
  }
  return {};
}

}  // namespace

Session::Session(CommonOptions options)
    : options_(std::move(options)), code_(ChooseModel(options_)), model_(code_) {}

void Session::CompareBoard() const {
  const std::string board = Board();
  if (board.empty() || board == code_ || !model_.known()) return;
  Note(
      "{} plugs in the virtual board of a {}, but the model is {}: the answers are not those of a "
      "{}",
      options_.virtual_model.empty() ? "TESSALINE_BOARD" : "--virtual", board, code_, code_);
}

std::string Session::Board() const {
  return options_.virtual_model.empty() ? Environment("TESSALINE_BOARD") : options_.virtual_model;
}

bool Session::on_virtual_board() const { return !Board().empty(); }

const live::LiveSensor* Session::live() const {
  if (options_.direct || is_daemon_ || on_virtual_board()) return nullptr;
  if (std::exchange(looked_for_daemon_, true)) return live_.get();
  live_ = live::LiveSensor::Find();
  if (live_ && !code_.empty() && code_ != live_->model()) {
    const std::string theirs = live_->model();
    const std::string name = live_->Name();
    live_.reset();
    looked_for_daemon_ = false;
    throw Failure(ExitCode::kUsage, fmt::format("{} has a {}, not a {}", name, theirs, code_),
                  "leave out the model, or use --direct once it has ended");
  }
  return live_.get();
}

void Session::RequireNoDaemon() const {
  if (is_daemon_ || on_virtual_board()) return;
  if (const auto daemon = live::LiveSensor::Find()) {
    throw Failure(ExitCode::kNegative, fmt::format("{} has the sensor", daemon->Name()),
                  "stop it first");
  }
}

const Model& Session::model() const {
  if (code_.empty() && live() != nullptr) {
    model_ = Model(live_->model());
    model_.Require();
    return model_;
  }
  if (code_.empty()) {
    throw Failure(ExitCode::kUsage, "no model given",
                  "use --model CODE, set TESSALINE_MODEL, or try it with --virtual K3610");
  }
  model_.Require();
  return model_;
}

void Session::MarkVirtual(Json& json) const {
  if (!json.is_object()) return;
  if (on_virtual_board() || (live_ && live_->is_virtual())) json["board"] = "virtual";
  if (live_) json["served_by"] = live_->Name();
}

void AddTo(Json& json, const Failure& failure) {
  json["error"] = failure.what();
  json["advice"] = failure.next();
  json["status"] = static_cast<int>(failure.code());
}

Failure FailureIn(const Json& json) {
  const auto text = [&](const char* key) {
    return json.contains(key) && json[key].is_string() ? json[key].get<std::string>() : "";
  };
  const bool has_status = json.contains("status") && json["status"].is_number_integer();
  const int status =
      has_status ? json["status"].get<int>() : static_cast<int>(ExitCode::kUnreachable);
  return {static_cast<ExitCode>(status), text("error"), text("advice")};
}

std::string Session::BoardLine() const {
  if (on_virtual_board()) return fmt::format("# virtual board of a {}\n", Board());
  if (!live_) return {};
  return fmt::format("# {}{} of {}\n", live_->is_virtual() ? "virtual board of the " : "the ",
                     live_->model(), live_->Name());
}

void Session::Emit(const Json& json) const {
  if (!options_.json) return;
  Json marked = json;
  MarkVirtual(marked);
  emitted_ = true;
  // Texts from files and arguments may be in any encoding.
  Write(marked.dump(2, ' ', false, Json::error_handler_t::replace) + '\n');
}

void Session::EmitLine(const Json& json) const {
  if (!options_.json) return;
  Json marked = json;
  MarkVirtual(marked);
  Write(marked.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n');
}

void Session::PrintText(const std::string& text) const {
  if (!std::exchange(told_of_board_, true)) Write(BoardLine());
  Write(Printable(text));
}

void Session::Write(const std::string& text) {
  FILE* const out = LibraryOutput::Instance().results();
  if (out == nullptr) {
    throw Failure(ExitCode::kFile, "standard output is closed, so the result cannot be shown",
                  "send it to /dev/null if it is not wanted");
  }
  if (fwrite(text.data(), 1, text.size(), out) == text.size() && fflush(out) == 0) return;
  if (errno == EPIPE) return;  // "| head": the reader has seen enough
  throw Failure(ExitCode::kFile,
                fmt::format("cannot write to standard output: {}", strerror(errno)),
                "make room, or send it elsewhere");
}

void Session::WriteNote(const std::string& text) {
  fprintf(stderr, "%s\n", Printable(text).c_str());
  fflush(stderr);
}

}  // namespace tool
