// The order of messages between a publisher that sends again and a server that delivers again.

#include <gmock/gmock.h>

#include "SimulatedFleet.h"

namespace {

using namespace fleet_test;   // NOLINT(google-build-using-namespace)
using namespace tool::fleet;  // NOLINT(google-build-using-namespace)
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

// --- The stream's order.

using Numbers = StreamOrder<int>;
constexpr Numbers::Clock::time_point kNow{seconds(1000)};

std::vector<int> Taken(Numbers& order, Numbers::Clock::time_point now, bool gone = true) {
  std::vector<int> all;
  while (const auto next = order.Next(now, seconds(30), [&] { return gone; })) all.push_back(*next);
  return all;
}

TEST(StreamOrders, WaitForWhatIsInFront) {
  Numbers order(4);
  EXPECT_FALSE(order.Add(4, 4, kNow));
  EXPECT_TRUE(order.Add(6, 6, kNow));
  EXPECT_FALSE(order.Add(6, 66, kNow));
  EXPECT_THAT(Taken(order, kNow), IsEmpty());
  EXPECT_TRUE(order.Add(5, 5, kNow));
  EXPECT_THAT(Taken(order, kNow), ElementsAre(5, 6));
  EXPECT_TRUE(order.Has(5));
  EXPECT_TRUE(order.Empty());
}

// Each message is waited for, but not for one after the other.
TEST(StreamOrders, ManyHolesCostOnePatience) {
  Numbers order(0);
  for (int number = 2; number <= 100; number += 2) {
    order.Add(static_cast<std::uint64_t>(number), number, kNow);
  }
  EXPECT_THAT(Taken(order, kNow + seconds(29)), IsEmpty());
  EXPECT_EQ(Taken(order, kNow + seconds(30)).size(), 50U);
  EXPECT_EQ(order.holes(), 50U);
}

TEST(StreamOrders, WhatWasGivenUpIsTakenIfItComesAllTheSame) {
  Numbers order(0);
  order.Add(9, 9, kNow);
  EXPECT_THAT(Taken(order, kNow + seconds(30)), ElementsAre(9));
  for (const int number : {5, 1, 8, 6}) {
    EXPECT_FALSE(order.Has(static_cast<std::uint64_t>(number)));
    EXPECT_TRUE(order.Add(static_cast<std::uint64_t>(number), number, kNow));
    EXPECT_TRUE(order.Has(static_cast<std::uint64_t>(number)));
    EXPECT_THAT(Taken(order, kNow), ElementsAre(number));
    EXPECT_FALSE(order.Add(static_cast<std::uint64_t>(number), number, kNow));
  }
  for (const int number : {2, 3, 4, 7}) EXPECT_FALSE(order.Has(static_cast<std::uint64_t>(number)));
}

TEST(StreamOrders, WhatTheServerHasIsWaitedFor) {
  Numbers order(0);
  order.Add(2, 2, kNow);
  EXPECT_THAT(Taken(order, kNow + seconds(30), /*gone=*/false), IsEmpty());
  EXPECT_THAT(Taken(order, kNow + seconds(59)), IsEmpty());
  EXPECT_THAT(Taken(order, kNow + seconds(60)), ElementsAre(2));
}

TEST(StreamOrders, NobodyIsImpatientWhileNothingCanCome) {
  Numbers order(0);
  order.Add(2, 2, kNow);
  order.Interrupted(kNow + seconds(100));
  EXPECT_THAT(Taken(order, kNow + seconds(129)), IsEmpty());
  EXPECT_THAT(Taken(order, kNow + seconds(130)), ElementsAre(2));
}

// --- The runs' order.

Packet Numbered(const std::string& run, std::uint64_t first, std::uint64_t last = 0) {
  Packet packet = TextPacket(run, last == 0 ? first : last, Kind::kGap, "");
  packet.header.first_sequence = first;
  return packet;
}
Packet End(const std::string& run, std::uint64_t sequence) {
  return TextPacket(run, sequence, Kind::kEnd, "");
}

class Runs : public testing::Test {
 protected:
  // What comes out: "17", "10-17", "hole 3-4", "over", "again 17".
  std::string Add(const Packet& packet, std::uint64_t acknowledged = 0) {
    std::vector<Arrival> duplicates;
    std::string text;
    for (const auto& step : order_.Add(ArrivalOf(packet, acknowledged), duplicates)) {
      const auto range = [](std::uint64_t first, std::uint64_t last) {
        return std::to_string(first) + (last == first ? "" : "-" + std::to_string(last)) + ' ';
      };
      if (step.run != kRun) text += step.run.substr(14) + ' ';
      if (step.run_is_over) {
        text += "over ";
      } else if (step.arrival) {
        text += range(step.arrival->header.first(), step.arrival->header.sequence);
      } else {
        text += "hole " + range(step.hole.first, step.hole.last);
      }
    }
    for (const auto& one : duplicates) {
      text += "again " + std::to_string(one.header.sequence) + ' ';
    }
    return text;
  }
  RunOrder order_{{}, /*joins=*/true};
};

TEST_F(Runs, ComeInOrderAndOnce) {
  EXPECT_EQ(Add(Numbered(kRun, 2)), "");
  EXPECT_TRUE(order_.Waits());
  EXPECT_EQ(Add(Numbered(kRun, 2)), "again 2 ");
  EXPECT_EQ(Add(Numbered(kRun, 1)), "1 2 ");
  EXPECT_EQ(Add(Numbered(kRun, 1)), "again 1 ");
  EXPECT_FALSE(order_.Waits());
}

TEST_F(Runs, MissWhatWasAcknowledgedAndDidNotCome) {
  Add(Numbered(kRun, 1));
  EXPECT_EQ(Add(Numbered(kRun, 5), 3), "hole 2-3 ");
  EXPECT_EQ(Add(Numbered(kRun, 7), 6), "hole 4 5 hole 6 7 ");
}

TEST_F(Runs, GapsTakeTheNumbersTheyStandFor) {
  Add(Numbered(kRun, 1));
  EXPECT_EQ(Add(Numbered(kRun, 6)), "");
  EXPECT_EQ(Add(Numbered(kRun, 2, 5)), "2-5 6 ");
}

// No honest publisher sends that; numbers must not go back all the same.
TEST_F(Runs, OverlappingNumbersDoNotGoBack) {
  Add(Numbered(kRun, 3));
  Add(Numbered(kRun, 4, 9));
  Add(Numbered(kRun, 6));
  EXPECT_EQ(Add(Numbered(kRun, 1, 8)), "1-8 4-9 again 3 again 6 ");
  EXPECT_EQ(Add(Numbered(kRun, 10)), "10 ");
}

TEST_F(Runs, JoinedInTheMiddleMissNothingInFront) {
  EXPECT_EQ(Add(Numbered(kRun, 10), 5), "");
  EXPECT_EQ(Add(Numbered(kRun, 11), 9), "10 11 ");  // somebody else had 6 to 9
  EXPECT_EQ(Add(Numbered(kRun, 13), 12), "hole 12 13 ");
}

// Only the run in which a subscriber comes may have begun without it.
TEST_F(Runs, ThatFollowBeginAtTheirBeginning) {
  Add(Numbered(kRun, 10), 9);
  EXPECT_EQ(Add(End(kRun, 11)), "11 ");
  EXPECT_TRUE(order_.Misses(ArrivalOf(Numbered(kOtherRun, 3), 2)));
  EXPECT_EQ(Add(Numbered(kOtherRun, 3), 2), "aa hole 1-2 aa 3 ");
}

TEST_F(Runs, FollowWhatAFileHas) {
  order_ = RunOrder({{kRun, {20, false}}}, false);
  EXPECT_EQ(Add(Numbered(kRun, 20), 15), "again 20 ");
  EXPECT_EQ(Add(Numbered(kRun, 23), 22), "hole 21-22 23 ");
}

TEST_F(Runs, WithoutAnEndAreOverWhenAnotherBegins) {
  Add(Numbered(kRun, 1));
  Add(Numbered(kRun, 4));
  EXPECT_EQ(Add(Numbered(kOtherRun, 1)), "hole 2-3 4 over aa 1 ");
  EXPECT_EQ(Add(Numbered(kOtherRun, 2), 1), "aa 2 ");
  // What a later publisher finds in a store.
  EXPECT_EQ(Add(Numbered(kRun, 5)), "aa over 5 ");
  EXPECT_EQ(Add(Numbered(kOtherRun, 3)), "aa 3 ");
}

TEST_F(Runs, WithAnEndAreNotMissed) {
  Add(Numbered(kRun, 1));
  Add(End(kRun, 2));
  EXPECT_EQ(Add(Numbered(kOtherRun, 1)), "aa 1 ");
}

TEST_F(Runs, OfAFileAreOverOnce) {
  order_ = RunOrder({{kRun, {20, false}}, {"00000000000000bb", {5, true}}}, false);
  EXPECT_EQ(Add(Numbered(kOtherRun, 1)), "over aa 1 ");
  EXPECT_EQ(Add(Numbered(kOtherRun, 2)), "aa 2 ");
}

// What comes again after a subscriber began anew is of the past.
TEST_F(Runs, AreNotOverBecauseSomethingCameAgain) {
  order_ = RunOrder({{kRun, {20, true}}, {kOtherRun, {5, false}}}, false);
  EXPECT_EQ(Add(Numbered(kRun, 19)), "again 19 ");
  EXPECT_EQ(Add(Numbered(kOtherRun, 6)), "aa 6 ");
}

TEST_F(Runs, OfAYearKeepTheirNumbers) {
  const std::uint64_t far = std::uint64_t{1} << 62;
  order_ = RunOrder({{kRun, {far, false}}}, false);
  EXPECT_EQ(Add(Numbered(kRun, far + 2), far), "");
  EXPECT_EQ(Add(Numbered(kRun, far + 1), far),
            std::to_string(far + 1) + ' ' + std::to_string(far + 2) + ' ');
}

TEST_F(Runs, AreMissedBeforeTheyAreGivenUp) {
  const auto misses = [&](const Packet& packet, std::uint64_t acknowledged) {
    return order_.Misses(ArrivalOf(packet, acknowledged));
  };
  EXPECT_TRUE(misses(Numbered(kRun, 9), 8)) << "those in front may have gone to somebody else";
  EXPECT_EQ(Add(Numbered(kRun, 1)), "1 ");
  EXPECT_FALSE(misses(Numbered(kRun, 5), 1)) << "the others are on their way";
  EXPECT_TRUE(misses(Numbered(kRun, 5), 2));
  EXPECT_FALSE(misses(Numbered(kRun, 1), 0));
  EXPECT_EQ(Add(Numbered(kRun, 2, 4)), "2-4 ");
  EXPECT_FALSE(misses(Numbered(kRun, 5), 4));
  EXPECT_TRUE(misses(Numbered(kOtherRun, 1), 0)) << "the end of the one before";
  EXPECT_EQ(Add(End(kRun, 5)), "5 ");
  EXPECT_FALSE(misses(Numbered(kOtherRun, 1), 0));
}

TEST_F(Runs, TakeLateOnesWithoutGivingUpOthers) {
  const auto add_late = [&](const Packet& packet, std::uint64_t acknowledged) {
    std::vector<Arrival> duplicates;
    const auto steps = order_.AddLate(ArrivalOf(packet, acknowledged), duplicates);
    return std::pair(steps.size(), duplicates.size());
  };
  EXPECT_EQ(Add(Numbered(kOtherRun, 1)), "aa 1 ");
  EXPECT_EQ(add_late(Numbered(kRun, 1), 0), std::pair(1UL, 0UL));
  EXPECT_EQ(add_late(Numbered(kRun, 1), 0), std::pair(0UL, 1UL));
  EXPECT_EQ(add_late(Numbered(kRun, 4), 3), std::pair(0UL, 0UL)) << "2 and 3 may come yet";
  EXPECT_EQ(add_late(Numbered(kRun, 2, 3), 1), std::pair(2UL, 0UL));
  EXPECT_EQ(add_late(End(kRun, 5), 4), std::pair(1UL, 0UL));
  EXPECT_EQ(Add(Numbered(kOtherRun, 2), 1), "aa 2 ") << "it is still the one that is sent";
}

// --- The whole way.

TEST(SendWindows, DoNotRunAwayFromTheOldest) {
  SendWindow window;
  std::uint64_t sequence = 0;
  const auto add = [&] { return window.Add({StripsPacket(kRun, ++sequence, 1, 1), 0}); };
  const auto oldest = add();
  while (window.HasRoom()) {
    const auto next = add();
    EXPECT_EQ(window.AcknowledgedBefore(next), 0U);
    window.Acknowledge(SendWindow::NameOf(window.At(next).header), {});
    ASSERT_LE(sequence, SendWindow::kMost);
  }
  EXPECT_EQ(sequence, SendWindow::kMost);
  EXPECT_EQ(window.size(), 1U);
  window.Acknowledge(SendWindow::NameOf(window.At(oldest).header), {});
  EXPECT_TRUE(window.HasRoom());
  EXPECT_EQ(window.AcknowledgedBefore(add()), SendWindow::kMost);
}

TEST(SendWindows, TellWhichRowsHaveArrived) {
  SendWindow window;
  const auto add = [&](std::uint64_t sequence, std::int64_t row) {
    window.Add({StripsPacket(kRun, sequence, 1, 1), row});
  };
  const auto arrived = [&](std::uint64_t sequence) {
    const auto done = window.Acknowledge(std::string(kRun) + "." + std::to_string(sequence), {});
    return done ? done->rows_before : -1;
  };
  add(1, 0);
  add(2, 101);
  add(3, 102);
  add(4, 0);
  add(5, 103);
  EXPECT_EQ(arrived(3), 101);
  EXPECT_EQ(arrived(3), -1);
  EXPECT_EQ(arrived(1), 0);
  EXPECT_EQ(arrived(2), 103);
  EXPECT_EQ(arrived(5), 104);
  EXPECT_EQ(arrived(4), 0);
}

// A server that ends acknowledges what it does not store any more.
TEST(SendWindows, SendAgainWhatWasAcknowledgedJustBeforeTheConnectionBroke) {
  using namespace std::chrono_literals;
  SendWindow window;
  const SendWindow::Clock::time_point begin{};
  const auto name = [](int sequence) { return std::string(kRun) + "." + std::to_string(sequence); };
  for (const int sequence : {1, 2, 3}) window.Add({StripsPacket(kRun, sequence, 1, 1), 7});
  EXPECT_TRUE(window.Acknowledge(name(1), begin));
  EXPECT_TRUE(window.Acknowledge(name(2), begin + 3s));
  const auto doubted = window.Doubt(begin + 4s);
  EXPECT_EQ(doubted.messages, 1U);
  ASSERT_TRUE(window.NextAgain());
  EXPECT_EQ(window.At(*window.NextAgain()).header.sequence, 2U);
  EXPECT_EQ(window.size(), 2U);
  EXPECT_EQ(window.Doubt(begin + 4s).messages, 0U);
  EXPECT_TRUE(window.Acknowledge(name(2), begin + 5s));
  EXPECT_FALSE(window.NextAgain());
  window.RefuseAll();
  EXPECT_EQ(window.At(*window.NextAgain()).header.sequence, 3U);
}

TEST(SendWindows, LetARunFollowWhenTheOneBeforeIsStored) {
  SendWindow window;
  window.Add({StripsPacket(kRun, 1, 1, 1), 0});
  EXPECT_TRUE(window.Admits(StripsPacket(kRun, 2, 1, 1).header));
  EXPECT_FALSE(window.Admits(StripsPacket(kOtherRun, 1, 1, 1).header));
  EXPECT_TRUE(window.Refuse(std::string(kRun) + ".1"));
  EXPECT_TRUE(window.NextAgain());
  EXPECT_TRUE(window.Acknowledge(std::string(kRun) + ".1", {}));
  EXPECT_FALSE(window.NextAgain());
  EXPECT_FALSE(window.Refuse(std::string(kRun) + ".1"));
  EXPECT_TRUE(window.Admits(StripsPacket(kOtherRun, 1, 1, 1).header));
}

class Fleet : public testing::TestWithParam<unsigned> {};
INSTANTIATE_TEST_SUITE_P(Seeds, Fleet, testing::Range(0U, 60U));

TEST_P(Fleet, EveryMessageIsStoredOnceInOrderOrMissedRightly) {
  std::mt19937_64 random(GetParam());
  SimulatedServer server;
  SimulatedPublisher publisher(server, random);
  SimulatedSubscriber subscriber(server, random);
  const unsigned bad = GetParam() % 4 * 4;  // of a hundred
  std::vector<std::string> runs;
  std::map<std::string, std::set<std::uint64_t>> ends;
  Tick now = 0;
  const auto work = [&](Tick ticks) {
    for (const Tick end = now + ticks; now < end; ++now) {
      publisher.Work(now, bad);
      subscriber.Work(now, bad);
      if (bad > 0 && random() % 300 == 0) subscriber.Kill(now);
    }
  };
  for (int i = 0; i < 4; ++i) {
    runs.push_back("00000000000000a" + std::to_string(i));
    const std::uint64_t count = 100 + random() % 300;
    for (std::uint64_t sequence = 1; sequence <= count;) {
      PacketHeader header = StripsPacket(runs.back(), sequence, 1, 1).header;
      if (random() % 20 == 0) {
        header.kind = Kind::kGap;
        header.first_sequence = sequence;
        header.sequence = sequence + random() % 5;
      } else if (sequence == count) {
        header.kind = Kind::kEnd;
      }
      header.crc = 0;  // of no bytes
      sequence = header.sequence + 1;
      publisher.Add(header);
    }
    work(10 + static_cast<Tick>(random() % 100));
    if (i < 3 && random() % 2 == 0) publisher.Kill(/*store=*/random() % 2 == 0);
  }
  for (int i = 0; i < 200 && !(publisher.Idle() && server.AllDone()); ++i) work(100);
  ASSERT_TRUE(publisher.Idle());
  ASSERT_TRUE(server.AllDone()) << "a message is never stored";

  // What the server had, by run.
  std::map<std::string, std::map<std::uint64_t, std::uint64_t>> stored;
  std::set<std::string> ended;
  for (const auto& one : server.stream()) {
    stored[one.header.run][one.header.first()] = one.header.sequence;
    if (one.header.kind == Kind::kEnd) ended.insert(one.header.run);
  }
  std::map<std::string, std::map<std::uint64_t, std::uint64_t>> came;
  const auto& file = subscriber.file();
  std::string last_run;
  for (const auto& [run, first] : file.came) {
    EXPECT_GE(run, last_run) << "runs come one after the other";
    last_run = run;
    EXPECT_TRUE(came[run].empty() || came[run].rbegin()->first < first) << "in order, and once";
    came[run][first] = stored[run][first];
  }
  EXPECT_EQ(came, stored);
  for (const auto& [run, messages] : stored) {
    std::set<std::uint64_t> missing;
    std::uint64_t next = 1;
    for (const auto& [first, last] : messages) {
      for (; next < first; ++next) missing.insert(next);
      next = last + 1;
    }
    const auto holes = file.holes.find(run);
    EXPECT_EQ(holes == file.holes.end() ? std::set<std::uint64_t>() : holes->second, missing);
    const auto over = file.over.find(run);
    const bool killed = !ended.contains(run) && run != stored.rbegin()->first;
    EXPECT_EQ(over == file.over.end() ? 0 : over->second, killed ? 1 : 0) << run;
  }
}

}  // namespace
