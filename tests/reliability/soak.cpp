// Takes millions of strips and many images. Checks that every one of them arrives, that all bytes
// are correct, and that memory and descriptors do not grow.
#include "reliability/Soak.h"

#include <stdlib.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdio>
#include <string>

#include "reliability/SoakHandlers.h"
#include "tessaline/board.h"
#include "tessaline/tessaline.h"

namespace {

using tessaline_test::Soak;
using tessaline_test::SoakHandlers;
using tessaline_test::SoakPlan;

std::atomic<unsigned> unexpected_errors = 0;

// At every change of region, the image device rejects the new format because it has buffers.
void OnError(log_Event* event) {
  char text[512];
  vsnprintf(text, sizeof text, event->fmt, event->ap);
  if (std::string(text).find("VIDIOC_S_FMT") != std::string::npos) return;
  ++unexpected_errors;
  std::fprintf(stderr, "WRONG: %s: %s\n", event->file, text);
}

// Hides what the library prints on the standard output.
class LibrarySilenced {
 public:
  LibrarySilenced() : output_(dup(STDOUT_FILENO)) {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) std::perror("/dev/null");
  }
  ~LibrarySilenced() {
    std::fflush(stdout);
    dup2(output_, STDOUT_FILENO);
    close(output_);
  }
  LibrarySilenced(const LibrarySilenced&) = delete;
  LibrarySilenced& operator=(const LibrarySilenced&) = delete;

 private:
  const int output_;
};

bool StartUp(const std::string& model) {
  if (tessaline_board_select(model.c_str()) != 0) return false;
  tessaline_board_transcript_enable(0);
  tessaline_board_set_sleep_factor(0);
  tessaline_board_set_pace(TESSALINE_BOARD_FREE_RUN);
  log_set_quiet(true);
  log_add_callback(OnError, nullptr, TESSALINE_LOG_ERROR);
  GetLibVersion(model.c_str());
  RegisterEventHandler(TESSALINE_EVENT_IMAGE,
                       reinterpret_cast<tessaline_event_handler>(SoakHandlers::OnImage));
  RegisterEventHandler(TESSALINE_EVENT_STRIP,
                       reinterpret_cast<tessaline_event_handler>(SoakHandlers::OnStrips));
  return RegisterHardwareInit() == 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Takes strips and images for a long time.", "soak");
  SoakPlan plan{"K3610", 10'000'000, 100'000};
  app.add_option("--strips", plan.strips, "minimum number of strips")->capture_default_str();
  app.add_option("--images", plan.images, "minimum number of images")->capture_default_str();
  // Products whose strips have eight bytes per point and that have no self-test at start-up.
  app.add_option("--model", plan.model, "product")
      ->check(CLI::IsMember({"K3610", "K3920", "K4010"}))
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  std::printf("%s\n", plan.model.c_str());
  std::fflush(stdout);
  Soak soak(plan);
  {
    const LibrarySilenced quiet;
    if (!StartUp(plan.model)) {
      std::fprintf(stderr, "soak: no start-up\n");
      return EXIT_FAILURE;
    }
    soak.Run();
  }
  return soak.Report() && unexpected_errors == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
