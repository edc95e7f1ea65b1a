#include "Session.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Failure.h"

namespace tool {
namespace {

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

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

bool Session::on_virtual_board() const {
  return !options_.virtual_model.empty() || !Environment("TESSALINE_BOARD").empty();
}

const Model& Session::model() const {
  if (code_.empty()) {
    throw Failure(ExitCode::kUsage, "no model given",
                  "use --model CODE, set TESSALINE_MODEL, or try it with --virtual K3610");
  }
  model_.Require();
  return model_;
}

void Session::Emit(const Json& json) const {
  if (!options_.json) return;
  // Texts from files and arguments may be in any encoding.
  Write(json.dump(2, ' ', false, Json::error_handler_t::replace) + '\n');
}

void Session::EmitLine(const Json& json) const {
  if (options_.json) Write(json.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n');
}

void Session::Write(const std::string& text) const {
  FILE* const out = LibraryOutput::Instance().user();
  if (fwrite(text.data(), 1, text.size(), out) == text.size() && fflush(out) == 0) return;
  if (errno == EPIPE) return;  // "| head": the reader has seen enough
  throw Failure(ExitCode::kFile,
                fmt::format("cannot write to standard output: {}", strerror(errno)),
                "make room, or send it elsewhere");
}

void Session::WriteNote(const std::string& text) {
  fprintf(stderr, "%s\n", text.c_str());
  fflush(stderr);
}

}  // namespace tool
