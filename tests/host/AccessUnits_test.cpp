#include "AccessUnits.h"

#include <gmock/gmock.h>

#include "support/TcpPeer.h"

using host::AccessUnit;
using host::AccessUnitAssembler;
using host::VideoCodec;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::bytes;

namespace {

const std::string kLong("\0\0\0\1", 4);
const std::string kShort("\0\0\1", 3);
// NAL units; a slice's second byte tells whether it begins a picture.
const std::string kSps = bytes({0x67, 0x42, 0x00});
const std::string kPps = bytes({0x68, 0xCE});
const std::string kIdr = bytes({0x65, 0x88, 0x11});
const std::string kIdrSecondSlice = bytes({0x65, 0x40, 0x22});
const std::string kInter = bytes({0x41, 0x9A, 0x33});

struct Assembled {
  explicit Assembled(VideoCodec codec)
      : assembler(codec, [this](const AccessUnit& unit) {
          units.emplace_back(unit.data.begin(), unit.data.end());
          keys.push_back(unit.key);
          times.push_back(unit.tv.tv_sec);
          configurations.push_back(unit.configuration);
        }) {}
  void add(const std::string& data, long seconds = 0) {
    assembler.add(reinterpret_cast<const uint8_t*>(data.data()), data.size(), {seconds, 0});
  }
  std::vector<std::string> units;
  std::vector<bool> keys;
  std::vector<long> times;
  std::vector<std::string> configurations;
  AccessUnitAssembler assembler;
};

}  // namespace

TEST(AccessUnits, SingleNalUnitsBecomeOnePictureWithTheTimeOfItsFirstSlice) {
  Assembled assembled(VideoCodec::h264);
  assembled.add(kIdrSecondSlice, 1);  // joined in the middle of a picture
  assembled.add(kSps, 2);
  assembled.add(kPps, 3);
  assembled.add(kIdr, 4);
  assembled.add(kIdrSecondSlice, 5);
  EXPECT_THAT(assembled.units, IsEmpty());
  assembled.add(kInter, 6);
  assembled.assembler.flush();
  EXPECT_THAT(assembled.units,
              ElementsAre(kLong + kSps + kLong + kPps + kLong + kIdr + kLong + kIdrSecondSlice,
                          kLong + kInter));
  EXPECT_THAT(assembled.keys, ElementsAre(true, false));
  EXPECT_THAT(assembled.times, ElementsAre(4, 6));
  EXPECT_THAT(assembled.configurations, ElementsAre(bytes({0x67, 0x42}), ""));
}

TEST(AccessUnits, DeliveriesWithStartCodesAreCutWhereAPictureBegins) {
  Assembled assembled(VideoCodec::h264);
  assembled.add(kLong + kSps + kShort + kPps, 1);  // headers alone, as a first delivery
  assembled.add(kShort + kIdr + kShort + kIdrSecondSlice, 2);
  assembled.add(kLong + kInter + kLong + kInter, 3);
  assembled.assembler.flush();
  EXPECT_THAT(assembled.units,
              ElementsAre(kLong + kSps + kShort + kPps + kShort + kIdr + kShort + kIdrSecondSlice,
                          kLong + kInter, kLong + kInter));
  EXPECT_THAT(assembled.times, ElementsAre(2, 3, 3));
}

TEST(AccessUnits, SlicesOfAnMpeg2PictureAreJoined) {
  const std::string sequence = kShort + bytes({0xB3, 0x16, 0x01, 0x20});
  const std::string intra = kShort + bytes({0x00, 0x00, 0x08, 0x00});
  const std::string predicted = kShort + bytes({0x00, 0x00, 0x50, 0x00});
  const std::string slice = kShort + bytes({0x01, 0x7F});
  Assembled assembled(VideoCodec::mpeg2);
  assembled.add(slice);
  assembled.add(sequence + intra + slice);
  assembled.add(slice);
  assembled.add(predicted + slice);
  assembled.assembler.flush();
  EXPECT_THAT(assembled.units, ElementsAre(sequence + intra + slice + slice, predicted + slice));
  EXPECT_THAT(assembled.keys, ElementsAre(true, false));
}

TEST(AccessUnits, AnMpeg4HeaderGoesAheadOfItsPictureAndACutOneDoesNoHarm) {
  const std::string layer = kShort + bytes({0x20, 0x08});
  const std::string intra = kShort + bytes({0xB6, 0x10});
  const std::string predicted = kShort + bytes({0xB6, 0x50});
  Assembled assembled(VideoCodec::mpeg4);
  assembled.add(layer);
  assembled.add(intra);
  assembled.add(predicted + "rest");
  assembled.add("of it");
  assembled.add(kShort);
  assembled.assembler.flush();
  EXPECT_THAT(assembled.units, ElementsAre(layer + intra, predicted + "restof it"));
  EXPECT_THAT(assembled.keys, ElementsAre(true, false));
  EXPECT_EQ(assembled.configurations[0], bytes({0x20, 0x08}));
}

TEST(AccessUnits, AUnitThatDoesNotEndIsGivenUpAndTheNextOneCounts) {
  Assembled assembled(VideoCodec::h264);
  assembled.add(kIdr);
  const std::string slice = kIdrSecondSlice + std::string(1000000, 'x');
  for (std::size_t size = 0; size <= AccessUnitAssembler::kLongestUnit; size += slice.size()) {
    assembled.add(slice);
  }
  assembled.add(kInter);
  assembled.assembler.flush();
  EXPECT_THAT(assembled.units, ElementsAre(kLong + kInter));
  EXPECT_EQ(assembled.assembler.takeDropped(), 1U);
}

TEST(AccessUnits, AJpegPictureTellsItsSizeAndACutOneDoesNoHarm) {
  const std::string picture = bytes(
      {0xFF, 0xD8, 0xFF, 0xE0, 0, 4, 1, 2, 0xFF, 0xC0, 0, 11, 8, 1, 0x20, 1, 0x60, 1, 1, 0x11, 0});
  for (std::size_t size = 1; size <= picture.size(); ++size) {
    Assembled assembled(VideoCodec::mjpeg);
    assembled.add(picture.substr(0, size));
    ASSERT_EQ(assembled.units.size(), 1U);
    EXPECT_EQ(assembled.configurations[0], size < 17 ? "" : bytes({1, 0x20, 1, 0x60})) << size;
  }
}
