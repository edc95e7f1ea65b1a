// Standard messages made of strips and images, and the folder of a bag.

#include "record/Standard.h"

#include <gmock/gmock.h>

#include <map>

#include "BagFixture.h"
#include "record/BagFolder.h"
#include "record/BagReader.h"

namespace {

using namespace record_test;  // NOLINT(google-build-using-namespace)
using namespace tool;         // NOLINT(google-build-using-namespace)
using testing::ElementsAre;
using testing::HasSubstr;

bool Never() { return false; }

StripsMessage Buffer(const std::vector<std::byte>& bytes, std::uint32_t strips,
                     std::uint8_t point_bytes = 8) {
  return {kStart, strips, point_bytes, bytes};
}

std::vector<float> Floats(std::span<const std::byte> bytes) {
  std::vector<float> floats(bytes.size() / sizeof(float));
  std::memcpy(floats.data(), bytes.data(), bytes.size());
  return floats;
}

// The clouds of a buffer; empty if it is refused.
std::vector<Cdr> Clouds(StandardMessages& standard, const StripsMessage& buffer) {
  std::vector<Cdr> clouds;
  const bool whole = standard.MakePoints(buffer, [&](const Cdr& cdr) { clouds.push_back(cdr); });
  if (!whole) clouds.clear();
  return clouds;
}

TEST(Points, AreColumnsAndRowsWithoutACalibration) {
  std::vector<std::byte> bytes;
  AppendStrip(bytes, 5, 2, /*row=*/300, /*peak=*/90);
  AppendStrip(bytes, 6, 1, /*row=*/301, /*peak=*/91);
  StandardMessages standard({.geometry = tessaline_geometry_full(1456, 1088)});
  const auto clouds = Clouds(standard, Buffer(bytes, 2));
  ASSERT_EQ(clouds.size(), 1u);
  const auto cloud = Decode<PointsMessage>(clouds[0]);
  EXPECT_EQ(cloud.stamp_ns, kStart);
  EXPECT_EQ(cloud.frame_id, "tessaline");
  EXPECT_EQ(cloud.height, 1u);
  EXPECT_EQ(cloud.width, 3u);
  EXPECT_EQ(cloud.point_step, 16u);
  EXPECT_EQ(cloud.row_step, 48u);
  EXPECT_TRUE(cloud.is_dense);
  ASSERT_EQ(cloud.fields.size(), 4u);
  EXPECT_EQ(cloud.fields[3].name, "intensity");
  EXPECT_EQ(cloud.fields[3].offset, 12u);
  EXPECT_EQ(cloud.fields[3].datatype, 7);
  // The encoder counts ten from frame to frame.
  EXPECT_THAT(Floats(cloud.data), ElementsAre(0, 0, -300, 90, 1, 0, -300, 90, 0, 10, -301, 91));
}

TEST(Points, WithoutPeaksHaveNoIntensity) {
  std::vector<std::byte> bytes;
  Append(bytes, tessaline_strip_header{1, 2, 3, 2});
  Append(bytes, tessaline_short_point{7, 320});
  Append(bytes, tessaline_short_point{8, 352});
  StandardMessages standard({});
  const auto clouds = Clouds(standard, Buffer(bytes, 1, 4));
  ASSERT_EQ(clouds.size(), 1u);
  const auto cloud = Decode<PointsMessage>(clouds[0]);
  EXPECT_EQ(cloud.fields.size(), 3u);
  EXPECT_EQ(cloud.point_step, 12u);
  EXPECT_THAT(Floats(cloud.data), ElementsAre(7, 0, -10, 8, 0, -11));
}

TEST(Points, AreMillimetresWithACalibration) {
  tessaline_calibration calibration{};
  calibration.sensor_width = 1456;
  calibration.sensor_height = 1088;
  calibration.centre_column = 728;
  calibration.centre_row = 544;
  calibration.pixels_per_unit = 728;
  calibration.plane[0] = 36.4;  // 0.05 mm a column
  calibration.plane[4] = -36.4;
  calibration.plane[8] = 1;
  std::vector<std::byte> bytes;
  AppendStrip(bytes, 1, 1, /*row=*/544);
  AppendStrip(bytes, 2, 1, /*row=*/524);
  StandardMessages standard({.geometry = tessaline_geometry_full(1456, 1088),
                             .calibration = calibration,
                             .counts_per_mm = 100});
  const auto clouds = Clouds(standard, Buffer(bytes, 2));
  ASSERT_EQ(clouds.size(), 1u);
  const auto cloud = Decode<PointsMessage>(clouds[0]);
  const auto floats = Floats(cloud.data);
  ASSERT_EQ(floats.size(), 8u);
  EXPECT_NEAR(floats[0], -36.4, 1e-4);
  EXPECT_NEAR(floats[2], 0, 1e-4);
  EXPECT_NEAR(floats[5], 0.1, 1e-6);
  EXPECT_NEAR(floats[6], 1, 1e-4);
}

TEST(Points, OfALargeBufferComeInParts) {
  std::vector<std::byte> bytes;
  for (unsigned i = 0; i < 700; ++i) AppendStrip(bytes, i, 2000);
  StandardMessages standard({});
  std::size_t points = 0;
  const auto clouds = Clouds(standard, Buffer(bytes, 700));
  EXPECT_EQ(clouds.size(), 2u);
  for (const Cdr& cdr : clouds) points += Decode<PointsMessage>(cdr).width;
  EXPECT_EQ(points, 700u * 2000);
}

TEST(Points, OfABufferThatDoesNotFitAreNone) {
  std::vector<std::byte> bytes;
  AppendStrip(bytes, 1, 10);
  StandardMessages standard({});
  EXPECT_TRUE(Clouds(standard, Buffer(bytes, 2)).empty());
  EXPECT_TRUE(Clouds(standard, Buffer(bytes, 1, 4)).empty());
  EXPECT_TRUE(Clouds(standard, Buffer(bytes, 1, 3)).empty());
  EXPECT_EQ(Clouds(standard, Buffer(bytes, 1)).size(), 1u);
}

TEST(Picture, IsTheImageWithoutItsHeader) {
  const auto bytes = ImageBytes(9, 16, 8);
  const auto cdr = StandardMessages::MakePicture({kStart, 16, 8, bytes});
  ASSERT_TRUE(cdr);
  const auto picture = Decode<PictureMessage>(*cdr);
  EXPECT_EQ(picture.stamp_ns, kStart);
  EXPECT_EQ(picture.width, 16u);
  EXPECT_EQ(picture.height, 8u);
  EXPECT_EQ(picture.step, 16u);
  EXPECT_EQ(picture.encoding, "mono8");
  EXPECT_TRUE(std::ranges::equal(picture.data, std::span(bytes).first(128)));
  EXPECT_FALSE(StandardMessages::MakePicture({kStart, 17, 8, bytes}));
  EXPECT_FALSE(StandardMessages::MakePicture({kStart, 0xFFFF'FFFF, 0xFFFF'FFFF, bytes}));
}

TEST(Points, ThatAreCutAreRefused) {
  std::vector<std::byte> bytes;
  AppendStrip(bytes, 1, 3);
  StandardMessages standard({});
  const Cdr whole = Clouds(standard, Buffer(bytes, 1)).at(0);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_THAT(TextOf([&] { Decode<PointsMessage>(std::span(whole).first(length)); }),
                HasSubstr("is damaged"))
        << length;
  }
}

TEST(Points, OfMoreFieldsThanAPointHasAreRefused) {
  PointsMessage message;
  message.fields.resize(256);
  EXPECT_EQ(Decode<PointsMessage>(Encode(message)).fields.size(), 256u);
  message.fields.resize(257);
  EXPECT_THAT(TextOf([&] { Decode<PointsMessage>(Encode(message)); }),
              HasSubstr("too many fields of a point"));
}

TEST(Definitions, HoldTheTypesTheyAreMadeOf) {
  const std::string points = WholeDefinition(EntryOf(Topic::kPoints));
  const std::string bar(80, '=');
  const auto header = points.find(bar + "\nMSG: std_msgs/Header\n");
  const auto field = points.find(bar + "\nMSG: sensor_msgs/PointField\n");
  const auto time = points.find(bar + "\nMSG: builtin_interfaces/Time\nint32 sec\n");
  EXPECT_LT(header, field);
  EXPECT_LT(field, time);
  EXPECT_NE(time, points.npos);
  const std::string strips = WholeDefinition(EntryOf(Topic::kStrips));
  EXPECT_THAT(strips, HasSubstr("MSG: builtin_interfaces/Time"));
  EXPECT_EQ(strips.find("std_msgs"), strips.npos);
}

class Folder : public BagFolderTest {
 protected:
  void SetUp() override {
    BagFolderTest::SetUp();
    bag_ = folder_ / "bag";
    BagWriter writer(path_);
    PutStrips(writer, 0, 1, 10);
    PutImage(writer, 10, 3);
    PutStrips(writer, 20, 11, 10);
    writer.Close();
  }
  std::filesystem::path bag_;
};

TEST_F(Folder, HasOursAndStandardMessages) {
  const BagFolderResult result = ExportBagFolder(path_, bag_, StandardMessages({}), Never);
  EXPECT_THAT(result.files, ElementsAre(bag_ / "bag_0.db3", bag_ / "metadata.yaml"));
  std::map<Topic, unsigned> counts;
  BagReader reader(bag_ / "bag_0.db3");
  EXPECT_TRUE(reader.closed());
  while (const auto message = reader.Next()) ++counts[message->topic];
  EXPECT_EQ(counts[Topic::kStrips], 2u);
  EXPECT_EQ(counts[Topic::kImages], 1u);
  EXPECT_EQ(counts[Topic::kPoints], 2u);
  EXPECT_EQ(counts[Topic::kPicture], 1u);
  std::ifstream file(bag_ / "metadata.yaml");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  EXPECT_THAT(text, HasSubstr("\n  version: 9\n"));
  EXPECT_THAT(text, HasSubstr("\n  message_count: 6\n"));
  EXPECT_THAT(text, HasSubstr("    nanoseconds_since_epoch: 1700000000000000000\n"));
  EXPECT_THAT(text, HasSubstr("  duration:\n    nanoseconds: 20000000\n"));
  EXPECT_THAT(text, HasSubstr("    - \"bag_0.db3\"\n"));
}

TEST_F(Folder, IsNeverOverwritten) {
  std::filesystem::create_directory(bag_);
  EXPECT_THAT(TextOf([&] { ExportBagFolder(path_, bag_, StandardMessages({}), Never); }),
              HasSubstr("already exists"));
  EXPECT_TRUE(std::filesystem::is_empty(bag_));
}

TEST_F(Folder, ThatIsNotFinishedIsRemoved) {
  int asked = 0;
  EXPECT_THAT(TextOf([&] {
                ExportBagFolder(path_, bag_, StandardMessages({}), [&] { return ++asked > 1; });
              }),
              HasSubstr("not written"));
  EXPECT_FALSE(std::filesystem::exists(bag_));
}

}  // namespace
