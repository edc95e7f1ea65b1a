#pragma once

#include <string>

#include "record/BagFixture.h"

namespace tessaline_test {

// A recording of a K3610: 300 profiles of 100 points in buffers of 10, ids 1 to 303 without 101 to
// 103, 100 ms a buffer, and 4 images of 16 x 8. `device`: the text of its device message.
inline void WriteRecording(const std::string& path,
                           const std::string& device = R"({"model": "K3610"})") {
  using namespace tool;         // NOLINT(google-build-using-namespace)
  using namespace record_test;  // NOLINT(google-build-using-namespace)
  BagWriter writer(path);
  const auto put = [&writer](const auto& message) {
    writer.Write(message.kTopic, message.stamp_ns, Encode(message));
  };
  put(DeviceMessage{kStart, device});
  put(RegisterMessage{kStart, 0x43C0'0000, 5});
  for (unsigned buffer = 0; buffer < 30; ++buffer) {
    std::vector<std::byte> bytes;
    for (unsigned i = 0; i < 10; ++i) {
      const unsigned number = buffer * 10 + i + 1;
      AppendStrip(bytes, number <= 100 ? number : number + 3, 100, /*row=*/400 + buffer);
    }
    put(StripsMessage{kStart + (buffer + 1) * 100 * kMs, 10, 8, bytes});
    if (buffer >= 4) continue;
    const auto image = ImageBytes(buffer + 1, 16, 8);
    put(ImageMessage{kStart + (buffer + 1) * 100 * kMs, 16, 8, image});
  }
  writer.Close();
}

}  // namespace tessaline_test
