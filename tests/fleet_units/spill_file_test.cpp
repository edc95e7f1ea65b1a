// The file of what waits, and files that are none.

#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "Fixture.h"
#include "fleet/SpillFile.h"

namespace {

using namespace fleet_test;   // NOLINT(google-build-using-namespace)
using namespace tool::fleet;  // NOLINT(google-build-using-namespace)
using testing::HasSubstr;

class Spill : public FolderTest {
 protected:
  static std::vector<Packet> Record(std::uint64_t sequence, std::uint64_t parts = 1,
                                    std::size_t size = 100) {
    std::vector<Packet> record;
    for (std::uint64_t part = 1; part <= parts; ++part) {
      const std::uint64_t number = sequence + part - 1;
      record.push_back(StripsPacket(kRun, number, number, number, size));
      record.back().header.part = part;
      record.back().header.parts = parts;
    }
    return record;
  }
  static std::vector<std::uint64_t> Numbers(const std::vector<SpillFile::Row>& rows) {
    std::vector<std::uint64_t> numbers;
    for (const auto& row : rows) numbers.push_back(row.packet.header.sequence);
    return numbers;
  }
  static std::vector<std::uint64_t> All(SpillFile& file) {
    std::vector<std::uint64_t> all;
    for (auto rows = file.Take(); !rows.empty(); rows = file.Take()) {
      const auto numbers = Numbers(rows);
      all.insert(all.end(), numbers.begin(), numbers.end());
    }
    return all;
  }
  std::string TextOfOpening() const {
    return TextOf([this] { SpillFile file(path_); });
  }
  void RunSql(const std::string& sql) const {
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(path_.c_str(), &handle), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(handle);
    sqlite3_close(handle);
  }
  std::string Content() const {
    std::ifstream file(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
};

TEST_F(Spill, GivesRecordsBackWhole) {
  SpillFile file(path_);
  EXPECT_TRUE(file.Empty());
  file.Append(Record(1));
  file.Append(Record(2, 3));
  file.Append(Record(5));
  EXPECT_EQ(file.waiting(), 5U);
  EXPECT_THAT(Numbers(file.Take()), testing::ElementsAre(1));
  const auto rows = file.Take();
  ASSERT_THAT(Numbers(rows), testing::ElementsAre(2, 3, 4));
  EXPECT_EQ(rows[1].packet.header, Record(2, 3)[1].header);
  EXPECT_EQ(rows[1].packet.payload, Record(2, 3)[1].payload);
  EXPECT_GT(rows[0].number, 0);
  EXPECT_THAT(Numbers(file.Take()), testing::ElementsAre(5));
  EXPECT_TRUE(file.Take().empty());
  EXPECT_TRUE(file.Empty());
}

TEST_F(Spill, HasAfterARestartWhatHasNotArrived) {
  {
    SpillFile file(path_);
    file.Append(Record(1, 3));
    file.Append(Record(4));
    const auto rows = file.Take();
    file.RemoveBefore(rows[1].number);         // the first part has arrived
    file.RemoveBefore(1'000'000'000'000'000);  // no more than was taken
    file.Append(Record(5));
  }
  SpillFile file(path_);
  EXPECT_THAT(All(file), testing::ElementsAre(4, 5));
}

TEST_F(Spill, ContinuesInTheMiddleOfARecord) {
  {
    SpillFile file(path_);
    file.Append(Record(1, 3));
    file.RemoveBefore(file.Take()[1].number);
  }
  SpillFile file(path_);
  EXPECT_THAT(Numbers(file.Take()), testing::ElementsAre(2, 3));
}

TEST_F(Spill, DropsBehindWhatWasTaken) {
  SpillFile file(path_);
  for (std::uint64_t sequence = 1; sequence <= 4; ++sequence) file.Append(Record(sequence));
  const auto taken = file.Take();
  EXPECT_THAT(Numbers(file.Drop()), testing::ElementsAre(2));
  EXPECT_THAT(Numbers(file.Take()), testing::ElementsAre(3));
  EXPECT_EQ(file.waiting(), 1U);
  file.RemoveBefore(taken[0].number + 1);
  EXPECT_THAT(All(file), testing::ElementsAre(4));
  EXPECT_TRUE(file.Drop().empty());
}

TEST_F(Spill, PutsInFrontWhatHasNotArrived) {
  {
    SpillFile file(path_);
    for (std::uint64_t sequence = 3; sequence <= 5; ++sequence) file.Append(Record(sequence));
    file.Take();
    std::vector<Packet> front = Record(1);
    front.push_back(Record(2)[0]);
    front.push_back(Record(3)[0]);
    file.PutInFront(front);
    EXPECT_EQ(file.waiting(), 5U);
  }
  SpillFile file(path_);
  EXPECT_EQ(file.waiting(), 5U);
  EXPECT_THAT(All(file), testing::ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(Spill, PutsInFrontOfNothingManyTimes) {
  for (std::uint64_t round = 0; round < 20; ++round) {
    SpillFile file(path_);
    if (round > 0) {
      EXPECT_THAT(All(file), testing::ElementsAre(1, 2));
    }
    std::vector<Packet> front = Record(1);
    front.push_back(Record(2)[0]);
    file.PutInFront(front);
  }
}

TEST_F(Spill, NeverUsesANumberAgain) {
  std::int64_t last = 0;
  for (int round = 0; round < 3; ++round) {
    SpillFile file(path_);
    file.Append(Record(1));
    const auto rows = file.Take();
    EXPECT_GT(rows[0].number, last);
    last = rows[0].number;
    file.RemoveBefore(last + 1);
  }
}

TEST_F(Spill, MeasuresWhatItTakes) {
  SpillFile file(path_);
  EXPECT_EQ(file.bytes(), 0U);
  for (std::uint64_t sequence = 1; sequence <= 100; ++sequence) {
    file.Append(Record(sequence, 1, 50'000));
  }
  EXPECT_GE(file.bytes(), 100 * 50'000U);
  EXPECT_LE(file.bytes(), 100 * 70'000U);
  const std::uint64_t before = file.bytes();
  file.Take();
  EXPECT_EQ(file.bytes(), before);  // until it has arrived
  All(file);
  file.RemoveBefore(INT64_MAX);
  EXPECT_EQ(file.bytes(), 0U);
}

// Of many gigabytes, nobody would wait for all to be read.
TEST_F(Spill, IsOpenedInTheSameTimeHoweverMuchIsInIt) {
  const auto reads = [this] {
    std::ifstream before("/proc/self/io");
    std::string word;
    std::uint64_t from = 0, to = 0;
    while (before >> word) {
      if (word == "rchar:") before >> from;
    }
    SpillFile file(path_);
    std::ifstream after("/proc/self/io");
    while (after >> word) {
      if (word == "rchar:") after >> to;
    }
    return to - from;
  };
  {
    SpillFile file(path_);
    std::vector<Packet> many;
    for (std::uint64_t sequence = 1; sequence <= 20'000; ++sequence) {
      many.push_back(Record(sequence, 1, 1000)[0]);
    }
    file.Append(many);
  }
  EXPECT_LT(reads(), 500'000U);  // of 25 MB
}

TEST_F(Spill, RefusesGarbageAndLeavesItAlone) {
  for (const std::string& garbage :
       {std::string("no store at all"), std::string(5000, '\xFF'), std::string(100, '\0')}) {
    std::ofstream(path_, std::ios::binary) << garbage;
    EXPECT_THAT(TextOfOpening(), HasSubstr("this is no store of a publisher"));
    EXPECT_EQ(Content(), garbage);
  }
}

TEST_F(Spill, RefusesAnotherProgramsFileAndLeavesItAlone) {
  for (const char* sql :
       {"CREATE TABLE notes(text)", "CREATE TABLE packets(id INTEGER PRIMARY KEY, text)",
        "CREATE TABLE packets(id INTEGER PRIMARY KEY AUTOINCREMENT, headers TEXT NOT NULL, "
        "payload BLOB NOT NULL); CREATE TABLE notes(text)",
        "CREATE TABLE packets(id INTEGER PRIMARY KEY AUTOINCREMENT, headers TEXT NOT NULL, "
        "payload BLOB NOT NULL); CREATE TRIGGER t AFTER INSERT ON packets BEGIN "
        "DELETE FROM packets; END"}) {
    std::filesystem::remove(path_);
    RunSql(sql);
    const std::string before = Content();
    EXPECT_THAT(TextOfOpening(), HasSubstr("this is no store of a publisher")) << sql;
    EXPECT_EQ(Content(), before) << sql;
  }
}

TEST_F(Spill, RefusesRowsThatAreNoMessages) {
  { SpillFile file(path_); }
  RunSql("INSERT INTO packets(headers, payload) VALUES('Hello: World', x'00')");
  EXPECT_THAT(TextOfOpening(), HasSubstr("this is no store of a publisher"));
}

// Parts that say they are many more than there are must not bring the whole file into memory.
TEST_F(Spill, TakesNoMoreThanARecord) {
  SpillFile file(path_);
  for (std::uint64_t sequence = 1; sequence <= 5; ++sequence) {
    auto record = Record(sequence);
    record[0].header.parts = 1'000'000;
    file.Append(record);
  }
  EXPECT_THAT(Numbers(file.Take()), testing::ElementsAre(1));
  EXPECT_THAT(All(file), testing::ElementsAre(2, 3, 4, 5));
}

TEST_F(Spill, RefusesFoldersAndPlacesThatAreNotThere) {
  std::filesystem::create_directory(path_);
  EXPECT_NE(TextOfOpening(), "no failure");
  path_ = folder_ / "none" / "left.store";
  EXPECT_THAT(TextOfOpening(), HasSubstr("No such file"));
}

TEST_F(Spill, BelongsToOnePublisher) {
  SpillFile file(path_);
  file.Append(Record(1));
  const pid_t child = fork();
  if (child == 0) {
    const std::string text = TextOf([this] { SpillFile other(path_); });
    _exit(text.find("another program") != std::string::npos ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  file.Append(Record(2));
  EXPECT_THAT(All(file), testing::ElementsAre(1, 2));
}

}  // namespace
