// Keys as the server knows them.

#include "fleet/NKey.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>

#include "Fixture.h"

namespace {

using namespace fleet_test;   // NOLINT(google-build-using-namespace)
using namespace tool::fleet;  // NOLINT(google-build-using-namespace)
using testing::HasSubstr;

// The pair in the server's own documentation.
constexpr const char* kSeed = "SUACSSL3UAHUDXKFSNVUZRF5UHPMWZ6BFDTJ7M6USDXIEDNPPQYYYCU3VY";
constexpr const char* kPublic = "UDXU4RCSJNZOIQHZNWXHXORDPRTGNJAHAHFRGZNEEJCPQTT2M7NLCNF4";

class Keys : public FolderTest {
 protected:
  std::string PublicOf(const std::string& text) const {
    std::ofstream(path_) << text;
    return PublicKeyOf(path_);
  }
  std::string RefusalOf(const std::string& text) const {
    return TextOf([&] { PublicOf(text); });
  }
};

TEST_F(Keys, HaveTheKnownPublicHalf) {
  EXPECT_EQ(PublicOf(kSeed), kPublic);
  EXPECT_EQ(PublicOf(std::string(kSeed) + "\n"), kPublic);
  EXPECT_EQ(PublicOf(std::string(kSeed) + "\r\n"), kPublic);
}

// A file of credentials has a token in front, in which any letters may be.
TEST_F(Keys, AreFoundBehindOtherText) {
  EXPECT_EQ(PublicOf(std::string("-----BEGIN NATS USER JWT-----\neyJ0eXAiSUABC.SUxyz\n"
                                 "------END NATS USER JWT------\n\n"
                                 "-----BEGIN USER NKEY SEED-----\n") +
                     kSeed + "\n------END USER NKEY SEED------\n"),
            kPublic);
}

TEST_F(Keys, WithAnyOtherLetterAreNone) {
  for (std::size_t i = 2; i + 1 < std::string(kSeed).size(); ++i) {
    std::string changed = kSeed;
    changed[i] = changed[i] == 'A' ? 'B' : 'A';
    EXPECT_THAT(RefusalOf(changed), HasSubstr("has no user's NKey")) << i;
  }
}

TEST_F(Keys, OfOthersAreNone) {
  const std::string seed = kSeed;
  for (const std::string& other :
       {std::string(), std::string("SU"), std::string(kPublic), seed.substr(0, 57), seed + "A",
        std::string("su") + seed.substr(2), std::string("SA") + seed.substr(2)}) {
    EXPECT_THAT(RefusalOf(other), HasSubstr("has no user's NKey")) << other;
  }
  path_ = folder_ / "none";
  EXPECT_NE(TextOf([&] { PublicKeyOf(path_); }), "no failure");
}

TEST_F(Keys, AreMadeForOneUserOnly) {
  const std::string made = MakeKey(path_);
  EXPECT_EQ(made, PublicKeyOf(path_));
  EXPECT_EQ(made.size(), 56U);
  EXPECT_EQ(made[0], 'U');
  struct stat about {};
  ASSERT_EQ(stat(path_.c_str(), &about), 0);
  EXPECT_EQ(about.st_mode & 0777, 0600U);
  EXPECT_NE(MakeKey(folder_ / "other"), made);
}

TEST_F(Keys, AreNeverOverwritten) {
  const std::string made = MakeKey(path_);
  EXPECT_THAT(TextOf([&] { MakeKey(path_); }), HasSubstr("File exists"));
  EXPECT_EQ(PublicKeyOf(path_), made);
}

TEST_F(Keys, ThatCannotBeWrittenLeaveNothing) {
  EXPECT_THAT(TextOf([&] { MakeKey("/dev/full/key"); }), HasSubstr("cannot write"));
  EXPECT_THAT(TextOf([&] { MakeKey(folder_ / "none" / "key"); }), HasSubstr("cannot write"));
}

}  // namespace
