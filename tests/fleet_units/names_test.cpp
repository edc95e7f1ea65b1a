// Names of sensors, patterns and subjects, and the rights to them.

#include "fleet/Names.h"

#include <gmock/gmock.h>

#include "fleet/Rights.h"

namespace {

using namespace tool::fleet;  // NOLINT(google-build-using-namespace)
using testing::HasSubstr;
using testing::Not;

struct MatchRow {
  const char* pattern;
  const char* name;
  bool matches;
};
class MatchTable : public testing::TestWithParam<MatchRow> {};

TEST_P(MatchTable, IsTheServersRule) {
  const MatchRow& row = GetParam();
  EXPECT_EQ(Matches(row.pattern, row.name), row.matches) << row.pattern << " " << row.name;
}

INSTANTIATE_TEST_SUITE_P(Names, MatchTable,
                         testing::Values(MatchRow{"a", "a", true}, MatchRow{"a", "b", false},
                                         MatchRow{"a", "a.b", false}, MatchRow{"a.b", "a", false},
                                         MatchRow{"*", "a", true}, MatchRow{"*", "a.b", false},
                                         MatchRow{"*.b", "a.b", true}, MatchRow{"a.*", "a.b", true},
                                         MatchRow{"a.*", "a", false},
                                         MatchRow{"a.*", "a.b.c", false},
                                         MatchRow{"a.*.c", "a.b.c", true}, MatchRow{">", "a", true},
                                         MatchRow{">", "a.b.c", true}, MatchRow{"a.>", "a", false},
                                         MatchRow{"a.>", "a.b", true},
                                         MatchRow{"a.>", "a.b.c", true},
                                         MatchRow{"a.>", "b.c", false}, MatchRow{"*.>", "a", false},
                                         MatchRow{"*.>", "a.b", true}, MatchRow{"ab", "a", false},
                                         MatchRow{"", "a", false}, MatchRow{"a", "", false}));

TEST(Patterns, AreWordsStarsAndARestAtTheEnd) {
  for (const char* good : {"a", "*", ">", "line3.*", "line3.>", "*.left", "*.*", "a-b_C.9"}) {
    EXPECT_TRUE(IsPattern(good)) << good;
  }
  for (const char* bad : {"", ".", "a.", ".a", "a..b", ">.a", "a*", "*a", "a.>b", "a b", "a/b", "ä",
                          "**", "a.>.b", "a\n"}) {
    EXPECT_FALSE(IsPattern(bad)) << bad;
  }
  EXPECT_TRUE(IsPattern(std::string(128, 'a')));
  EXPECT_FALSE(IsPattern(std::string(129, 'a')));
}

TEST(Streams, AreNamedSoThatTheSensorIsFoundAgain) {
  for (const char* name : {"a", "line3.left", "a.b.c-d_e"}) {
    EXPECT_EQ(SensorOfStream(StreamName(name)), name);
    EXPECT_EQ(StreamName(name).find('.'), std::string::npos);
  }
  for (const char* other : {"", "tessaline", "tessaline:", "tessaline:a:", "tessaline::a", "ORDERS",
                            "Tessaline:a", "tessaline:a b"}) {
    EXPECT_EQ(SensorOfStream(other), std::nullopt) << other;
  }
  EXPECT_LE(StreamName(std::string(128, 'a')).size(), 255U);
}

TEST(Subjects, HaveTheSensorBehindTheKind) {
  EXPECT_EQ(DataSubject("strips", "line3.left"), "tessaline.data.strips.line3.left");
  EXPECT_EQ(PresenceSubject("line3.left"), "tessaline.presence.line3.left");
  EXPECT_EQ(ControlSubject("set", "line3.left"), "tessaline.control.set.line3.left");
  EXPECT_EQ(ControlSubject("status", ""), "tessaline.control.status");
}

// An inbox inside of another one's could be read by its owner.
TEST(Inboxes, LieBesideEachOther) {
  EXPECT_FALSE(Matches(InboxPrefix(Role::kSensor, "line3") + ".>",
                       InboxPrefix(Role::kSensor, "line3.left") + ".x"));
  EXPECT_TRUE(Matches(InboxPrefix(Role::kSensor, "line3.left") + ".>",
                      InboxPrefix(Role::kSensor, "line3.left") + ".x"));
  EXPECT_NE(InboxPrefix(Role::kSensor, "line3.left"), InboxPrefix(Role::kSensor, "line3-left"));
}

TEST(Rights, OfASensorAreItsOwnSubjects) {
  const std::string text = RightsOf("sensor", "line3.left", "UABC");
  EXPECT_THAT(text, HasSubstr("nkey: UABC\n"));
  EXPECT_THAT(text, HasSubstr("\"tessaline.data.*.line3.left\""));
  EXPECT_THAT(text, Not(HasSubstr("STREAM.CREATE")));
  EXPECT_THAT(text, Not(HasSubstr("STREAM.DELETE")));
  EXPECT_THAT(text, Not(HasSubstr("$JS.ACK")));
  EXPECT_THAT(text, Not(HasSubstr("\">\"")));
  EXPECT_THAT(text, Not(HasSubstr("$JS.API.>")));
}

TEST(Rights, OfASubscriberAreNotToSend) {
  const std::string text = RightsOf("subscriber", "archive", "UABC");
  EXPECT_THAT(text, HasSubstr("\"$JS.ACK.*.archive.>\""));
  EXPECT_THAT(text, HasSubstr("\"tessaline.delivery.archive.>\""));
  EXPECT_THAT(text, Not(HasSubstr("tessaline.data")));
  EXPECT_THAT(text, Not(HasSubstr("tessaline.control")));
}

TEST(Rights, OfAnOperatorAreToAskAndToSet) {
  const std::string text = RightsOf("operator", "office", "UABC");
  EXPECT_THAT(text, HasSubstr("\"tessaline.control.>\""));
  EXPECT_THAT(text, Not(HasSubstr("$JS.ACK")));
}

}  // namespace
