#pragma once

#include <string>

namespace tessaline_test {

// A start-up's transcript, thread by thread. The events of the starting thread are in order among
// themselves, and so are those of each of the two capture threads; each thread is compared
// separately. How often the starting thread polls for the other two, and how many frames arrive
// meanwhile, does not matter.
class StartUpSections {
 public:
  void Add(const std::string& event) {
    if (event == "sleep 10") return;
    if (event.starts_with("video0 ")) {
      images_.Add(event);
    } else if (event.starts_with("video1 ") || event.starts_with("udmabuf0 ")) {
      strips_.Add(event);
    } else {
      starting_thread_ += event + '\n';
    }
  }

  std::string Text() const {
    return "# starting thread\n" + starting_thread_ + "# image thread\n" + images_.text +
           "# strip thread\n" + strips_.text;
  }

 private:
  // Without the frames that arrive.
  struct CaptureThread {
    void Add(const std::string& event) {
      const bool frame = event.find("_DQBUF") != std::string::npos ||
                         (streaming && event.find("_QBUF") != std::string::npos);
      if (!frame) text += event + '\n';
      if (event.find("_STREAMON") != std::string::npos) streaming = true;
    }
    std::string text;
    bool streaming = false;
  };

  std::string starting_thread_;
  CaptureThread images_, strips_;
};

}  // namespace tessaline_test
