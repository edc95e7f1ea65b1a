// Damaged recordings: what of them is still read, and what is said.

#include <gmock/gmock.h>

#include <random>

#include "BagFixture.h"
#include "record/BagCheck.h"

namespace {

using namespace record_test;  // NOLINT(google-build-using-namespace)
using namespace tool;         // NOLINT(google-build-using-namespace)
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::size_t kPage = Database::kPageBytes;

bool Never() { return false; }

class BagCheck : public BagFolderTest {
 protected:
  // `count` buffers of 10 strips each, 10 ms apart: 164 KB each, so they have overflow pages.
  void Write(unsigned count, unsigned points = 2000) {
    BagWriter writer(path_);
    for (unsigned i = 0; i < count; ++i) PutStrips(writer, i * 10, i * 10 + 1, 10, points);
    writer.Close();
  }
  BagFindings Check() const { return CheckBags(path_, Never).at(0); }
  // The first page in which the bytes are.
  std::size_t PageWith(const std::string& bytes) const {
    return Bytes().find(bytes) / kPage * kPage;
  }
  void Zero(std::size_t at, std::size_t size) const {
    std::string bytes = Bytes();
    bytes.replace(at, size, size, '\0');
    SetBytes(bytes);
  }
  // The header of a strip, as it lies in the file.
  static std::string HeaderOf(std::uint64_t id, unsigned points) {
    std::vector<std::byte> bytes;
    AppendStrip(bytes, id, 0);
    const std::uint64_t count = points;
    std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    std::memcpy(text.data() + 24, &count, sizeof count);
    return text;
  }
};

TEST_F(BagCheck, FindsNothingInAWholeOne) {
  Write(20);
  const BagFindings findings = Check();
  EXPECT_FALSE(findings.damaged());
  EXPECT_TRUE(findings.closed);
  EXPECT_THAT(findings.integrity, IsEmpty());
  ASSERT_EQ(findings.whole.size(), 1u);
  EXPECT_EQ(findings.whole[0].strips, 200u);
  EXPECT_EQ(findings.whole[0].messages, 20u);
  EXPECT_EQ(findings.whole[0].span.from_ns, kStart);
  EXPECT_EQ(findings.whole[0].span.to_ns, kStart + 190 * kMs);
}

TEST_F(BagCheck, SaysThatOneWasNotClosedAndIsWhole) {
  {
    BagWriter writer(path_);
    for (unsigned i = 0; i < 4; ++i) {
      PutStrips(writer, i * 10, i + 1, 1);
      if (i == 1) writer.Sync();
    }
  }
  const BagFindings findings = Check();
  EXPECT_FALSE(findings.closed);
  EXPECT_FALSE(findings.damaged());
  EXPECT_EQ(findings.synced_ns, kStart + 10 * kMs);
  EXPECT_GE(findings.contents.strips().frames(), 2u);
}

// The bytes of one message lie in a chain of pages; the chain is broken.
TEST_F(BagCheck, CountsTheRowsAroundADamagedOne) {
  Write(20);
  // Strip 85 is in the 9th buffer, behind its first page.
  Zero(PageWith(HeaderOf(85, 2000)), 4);
  const BagFindings findings = Check();
  EXPECT_TRUE(findings.damaged());
  EXPECT_FALSE(findings.integrity.empty());
  ASSERT_EQ(findings.places.size(), 1u);
  EXPECT_EQ(findings.places[0].first_id, 9);
  EXPECT_EQ(findings.places[0].last_id, 9);
  EXPECT_FALSE(findings.places[0].at_the_end);
  ASSERT_EQ(findings.whole.size(), 2u);
  EXPECT_EQ(findings.whole[0].strips, 80u);
  EXPECT_EQ(findings.whole[1].strips, 110u);
  EXPECT_EQ(findings.whole[1].first_id, 10);
}

TEST_F(BagCheck, CountsTheRowsAroundADamagedPage) {
  Write(400, 50);  // several in a page
  const std::size_t page = PageWith(HeaderOf(2001, 50));
  Zero(page, kPage);
  const BagFindings findings = Check();
  ASSERT_EQ(findings.places.size(), 1u);
  const DamagedPlace& place = findings.places[0];
  const auto lost = static_cast<std::uint64_t>(place.last_id - place.first_id + 1);
  EXPECT_LE(place.first_id, 201);
  EXPECT_GE(place.last_id, 201);
  EXPECT_LT(lost, 20u);
  EXPECT_EQ(findings.contents.Of(Topic::kStrips).count, 400 - lost);
  ASSERT_EQ(findings.whole.size(), 2u);
  EXPECT_EQ(findings.whole[0].last_id, place.first_id - 1);
  EXPECT_EQ(findings.whole[1].first_id, place.last_id + 1);
}

TEST_F(BagCheck, SaysWhereTheRestIsMissing) {
  Write(20);
  SetBytes(Bytes().substr(0, Bytes().size() / 2));
  const BagFindings findings = Check();
  EXPECT_TRUE(findings.damaged());
  ASSERT_FALSE(findings.whole.empty());
  EXPECT_EQ(findings.whole[0].first_id, 1);
  EXPECT_GE(findings.contents.Of(Topic::kStrips).count, 5u);
  EXPECT_LT(findings.contents.Of(Topic::kStrips).count, 15u);
}

// What is beside the messages: every page but the first, which is the list of tables.
TEST_F(BagCheck, ReadsMessagesWithoutWhatIsBesideThem) {
  Write(20);
  const std::string whole = Bytes();
  for (const std::size_t page : {1, 2, 3, 4, 6, 7}) {
    SetBytes(whole);
    Zero(page * kPage, kPage);
    const BagFindings findings = Check();
    EXPECT_FALSE(findings.integrity.empty()) << page;
    EXPECT_EQ(findings.contents.strips().frames(), 200u) << page;
  }
}

TEST_F(BagCheck, OfNothingReadableIsRefused) {
  Write(2);
  Zero(100, 1000);
  EXPECT_THROW(Check(), Damaged);
}

struct BadMessage {
  const char* sql;
  const char* what;
};
class BadMessages : public BagCheck, public testing::WithParamInterface<BadMessage> {};

TEST_P(BadMessages, AreFound) {
  Write(5);
  Sql(GetParam().sql);
  const BagFindings findings = Check();
  EXPECT_TRUE(findings.damaged());
  EXPECT_THAT(findings.integrity, IsEmpty());
  ASSERT_EQ(findings.bad_count, 1u);
  EXPECT_EQ(findings.bad[0].id, 3);
  EXPECT_THAT(findings.bad[0].what, HasSubstr(GetParam().what));
  ASSERT_EQ(findings.whole.size(), 2u);
  EXPECT_EQ(findings.whole[0].strips, 20u);
  EXPECT_EQ(findings.whole[1].strips, 20u);
}

INSTANTIATE_TEST_SUITE_P(
    All, BadMessages,
    testing::Values(
        BadMessage{"UPDATE messages SET data = substr(data, 1, 100) WHERE id = 3", "is damaged"},
        BadMessage{"UPDATE messages SET data = x'' WHERE id = 3", "is damaged"},
        BadMessage{"UPDATE messages SET timestamp = timestamp + 1 WHERE id = 3",
                   "its time is not that of its row"},
        // One strip fewer than there are: the number lies behind encapsulation and stamp.
        BadMessage{"UPDATE messages SET data = CAST(substr(data, 1, 12) || x'09' || "
                   "substr(data, 14) AS BLOB) WHERE id = 3",
                   "the strips do not fit their bytes"},
        BadMessage{"UPDATE messages SET topic_id = 2 WHERE id = 3", "is damaged"}));

// Such a file could be read for ever, were the tree of its pages deep enough.
TEST_F(BagCheck, ReadsNoPageTwice) {
  Write(400, 50);
  std::string bytes = Bytes();
  char* const root = bytes.data() + 5 * kPage;  // of the messages
  ASSERT_EQ(root[0], 5);                        // it leads to other pages
  const auto child = [&](int cell) {
    const auto* place = reinterpret_cast<const unsigned char*>(root + 12 + 2 * cell);
    return root + place[0] * 256 + place[1];
  };
  const int cells = static_cast<unsigned char>(root[3]) * 256 + static_cast<unsigned char>(root[4]);
  ASSERT_GT(cells, 10);
  for (int cell = 1; cell < cells; ++cell) std::memcpy(child(cell), child(0), 4);
  SetBytes(bytes);
  const BagFindings findings = Check();
  EXPECT_TRUE(findings.damaged());
  EXPECT_GE(findings.place_count, 1u);
  EXPECT_LT(findings.contents.Of(Topic::kStrips).count, 60u);
}

TEST_F(BagCheck, NeverFailsOnRandomDamage) {
  Write(40, 50);
  const std::string whole = Bytes();
  std::mt19937 random(7);
  unsigned found = 0, opened = 0;
  for (int round = 0; round < 300; ++round) {
    std::string damaged = whole;
    for (int i = 0; i < 4; ++i) {
      const std::size_t page = random() % (damaged.size() / kPage) * kPage;
      damaged[page + random() % (i % 2 == 0 ? 200 : kPage)] ^=
          static_cast<char>(1 + random() % 255);
    }
    SetBytes(damaged);
    try {
      const BagFindings findings = Check();
      ++opened;
      found += findings.damaged();
      EXPECT_LE(findings.contents.Of(Topic::kStrips).count, 40u);
    } catch (const Failure&) {  // not even its tables could be read
    }
  }
  EXPECT_GT(opened, 100u);
  // Most bytes are those of points, where nothing tells that they changed.
  EXPECT_GT(found, 50u);
}

}  // namespace
