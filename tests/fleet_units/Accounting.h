#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "fleet/Gap.h"
#include "fleet/Packet.h"

namespace fleet_test {

// What becomes of each number of each run: it comes, or it is named in a gap, once; and in order.
class Accounting {
 public:
  void Take(const tool::fleet::Packet& packet) {
    using tool::fleet::Kind;
    const tool::fleet::PacketHeader& header = packet.header;
    Run& run = runs_[header.run];
    EXPECT_EQ(header.first(), run.last + 1) << header.run << ": what comes behind " << run.last;
    run.last = header.sequence;
    EXPECT_EQ(header.crc, tool::fleet::Crc(packet.payload.data(), packet.payload.size()));
    if (header.kind == Kind::kStrips) {
      run.came += 1;
      run.frames += header.strips;
      EXPECT_TRUE(packet.payload.empty() ||
                  packet.payload.back() == static_cast<std::byte>(header.sequence));
      return;
    }
    ASSERT_EQ(header.kind, Kind::kGap);
    run.named += header.sequence - header.first() + 1;
    const auto* const text = reinterpret_cast<const char*>(packet.payload.data());
    const auto gap = tool::fleet::GapIn(tool::Json::parse(text, text + packet.payload.size()));
    EXPECT_EQ(gap.run, header.run);
    run.frames += gap.strips.count;
    ASSERT_TRUE(gap.strips.ids);
    EXPECT_EQ(gap.strips.ids->last - gap.strips.ids->first + 1, gap.strips.count);
  }

  struct Run {
    std::uint64_t last = 0;    // number
    std::uint64_t came = 0;    // messages
    std::uint64_t named = 0;   // messages, in gaps
    std::uint64_t frames = 0;  // that came or are named
  };
  const Run& Of(const std::string& run) { return runs_[run]; }

 private:
  std::map<std::string, Run> runs_;
};

}  // namespace fleet_test
