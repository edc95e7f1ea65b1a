#include "Listening.h"

#include <dlfcn.h>
#include <stdio.h>
#include <unistd.h>

#include <cstdarg>
#include <utility>

#include "Happenings.h"
#include "Worker.h"
#include "tessaline/log.h"

namespace python {

namespace {

thread_local Listening* listener = nullptr;

std::string Format(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = vsnprintf(nullptr, 0, format, again);
  va_end(again);
  if (length < 0) return format;
  std::string text(static_cast<std::size_t>(length), '\0');
  vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

}  // namespace

struct Hooks {
  static ssize_t OnPrinted(void* /*cookie*/, const char* text, std::size_t bytes) {
    if (listener == nullptr) return write(STDOUT_FILENO, text, bytes);
    listener->Print(text, bytes);
    return static_cast<ssize_t>(bytes);
  }

  static void OnLogged(log_Event* event) {
    Line line{event->level, std::string(event->file) + ':' + std::to_string(event->line),
              Format(event->fmt, event->ap)};
    if (listener != nullptr) {
      listener->lines_.push_back(std::move(line));
    } else {
      Happenings::Instance().Add(std::move(line));
    }
  }
};

Listening::Listening() : outer_(std::exchange(listener, this)) {}

Listening::~Listening() { listener = outer_; }

void Listening::Print(const char* text, std::size_t bytes) {
  for (const char* const end = text + bytes; text != end; ++text) {
    if (*text != '\n') {
      printed_ += *text;
    } else {
      lines_.push_back({kPrinted, "", std::exchange(printed_, {})});
    }
  }
  if (printed_.ends_with(kRegistersGone)) Worker::Instance().GiveUp();
}

std::vector<Line> Listening::Lines() {
  if (!printed_.empty()) lines_.push_back({kPrinted, "", std::exchange(printed_, {})});
  return std::exchange(lines_, {});
}

void Listening::Prepare(int log_level) {
  static bool prepared = false;
  if (std::exchange(prepared, true)) return;
  log_set_quiet(true);
  log_add_callback(Hooks::OnLogged, nullptr, log_level);
  // The C library prints through this variable. A module in a scope of its own may see another copy
  // of it, so this asks the program.
  auto* const out = static_cast<FILE**>(dlsym(dlopen(nullptr, RTLD_NOW), "stdout"));
  if (out == nullptr) return;
  fflush(*out);
  cookie_io_functions_t functions{};
  functions.write = Hooks::OnPrinted;
  FILE* const replacement = fopencookie(nullptr, "w", functions);
  if (replacement == nullptr) return;
  // Every printf reaches the hook by itself, on the thread that printed.
  setvbuf(replacement, nullptr, _IONBF, 0);
  *out = replacement;
}

}  // namespace python
