#include "AccessUnits.h"

#include <gmock/gmock.h>

#include "support/TcpPeer.h"

using host::AccessUnit;
using host::AccessUnitAssembler;
using host::VideoCodec;
using testing::ElementsAre;
using testsupport::hex;

namespace {

const std::string kLong("\0\0\0\1", 4);
const std::string kShort("\0\0\1", 3);
// NAL units; a slice's second byte tells whether it begins a picture.
const std::string kSps = hex("67 42 00");
const std::string kPps = hex("68 ce");
const std::string kIdr = hex("65 88 11");
const std::string kIdrSecondSlice = hex("65 40 22");
const std::string kInter = hex("41 9a 33");

struct Delivery {
  std::string data;
  long seconds = 0;
};

struct Assembled {
  Assembled(VideoCodec codec, const std::vector<Delivery>& deliveries) {
    AccessUnitAssembler assembler(codec, [this](const AccessUnit& unit) {
      units.emplace_back(unit.data.begin(), unit.data.end());
      keys.push_back(unit.key);
      times.push_back(unit.tv.tv_sec);
      configurations.push_back(unit.configuration);
    });
    for (const auto& [data, seconds] : deliveries) {
      assembler.add(reinterpret_cast<const uint8_t*>(data.data()), data.size(), {seconds, 0});
    }
    assembler.flush();
    dropped = assembler.takeDropped();
  }
  std::vector<std::string> units;
  std::vector<bool> keys;
  std::vector<long> times;
  std::vector<std::string> configurations;
  unsigned dropped = 0;
};

}  // namespace

TEST(AccessUnits, SingleNalUnitsBecomeOnePictureWithTheTimeOfItsFirstSlice) {
  // Joined in the middle of a picture.
  const Assembled assembled(
      VideoCodec::h264,
      {{kIdrSecondSlice, 1}, {kSps, 2}, {kPps, 3}, {kIdr, 4}, {kIdrSecondSlice, 5}, {kInter, 6}});
  EXPECT_THAT(assembled.units,
              ElementsAre(kLong + kSps + kLong + kPps + kLong + kIdr + kLong + kIdrSecondSlice,
                          kLong + kInter));
  EXPECT_THAT(assembled.keys, ElementsAre(true, false));
  EXPECT_THAT(assembled.times, ElementsAre(4, 6));
  EXPECT_THAT(assembled.configurations, ElementsAre(hex("67 42"), ""));
}

TEST(AccessUnits, DeliveriesWithStartCodesAreCutWhereAPictureBegins) {
  const std::string headers = kLong + kSps + kShort + kPps;
  const std::string picture = kShort + kIdr + kShort + kIdrSecondSlice;
  const std::string intra = kLong + kSps + kLong + kInter;  // of cameras without IDR pictures
  const Assembled assembled(VideoCodec::h264,
                            {{headers, 1}, {picture, 2}, {kLong + kInter + intra, 3}});
  EXPECT_THAT(assembled.units, ElementsAre(headers + picture, kLong + kInter, intra));
  EXPECT_THAT(assembled.times, ElementsAre(2, 3, 3));
  EXPECT_THAT(assembled.keys, ElementsAre(true, false, true));
}

TEST(AccessUnits, SlicesOfAnMpeg2PictureAreJoined) {
  const std::string intra = kShort + hex("b3 16 01 20") + kShort + hex("00 00 08 00");
  const std::string predicted = kShort + hex("00 00 50 00");
  const std::string slice = kShort + hex("01 7f");
  const Assembled assembled(VideoCodec::mpeg2,
                            {{slice}, {intra + slice}, {slice}, {predicted + slice}});
  EXPECT_THAT(assembled.units, ElementsAre(intra + slice + slice, predicted + slice));
  EXPECT_THAT(assembled.keys, ElementsAre(true, false));
}

TEST(AccessUnits, AnMpeg4HeaderGoesAheadOfItsPictureAndACutOneDoesNoHarm) {
  const std::string layer = kShort + hex("20 08");
  const std::string intra = kShort + hex("b6 10");
  const std::string predicted = kShort + hex("b6 50");
  const Assembled assembled(VideoCodec::mpeg4,
                            {{layer}, {intra}, {predicted + "rest"}, {"of it"}, {kShort}});
  EXPECT_THAT(assembled.units, ElementsAre(layer + intra, predicted + "restof it"));
  EXPECT_THAT(assembled.keys, ElementsAre(true, false));
  EXPECT_EQ(assembled.configurations[0], hex("20 08"));
}

TEST(AccessUnits, AUnitThatDoesNotEndIsGivenUpAndTheNextOneCounts) {
  const std::string slice = kIdrSecondSlice + std::string(1000000, 'x');
  std::vector<Delivery> deliveries(AccessUnitAssembler::kLongestUnit / slice.size() + 1, {slice});
  deliveries.insert(deliveries.begin(), {kIdr});
  deliveries.push_back({kInter});
  const Assembled assembled(VideoCodec::h264, deliveries);
  EXPECT_THAT(assembled.units, ElementsAre(kLong + kInter));
  EXPECT_EQ(assembled.dropped, 1U);
}

TEST(AccessUnits, AJpegPictureTellsItsSizeAndACutOneDoesNoHarm) {
  const std::string picture = hex("ffd8 ffe0 0004 0102 ffc0 000b 08 0120 0160 01 01 11 00");
  for (std::size_t size = 1; size <= picture.size(); ++size) {
    const Assembled assembled(VideoCodec::mjpeg, {{picture.substr(0, size)}});
    ASSERT_EQ(assembled.units.size(), 1U);
    EXPECT_EQ(assembled.configurations[0], size < 17 ? "" : hex("0120 0160")) << size;
  }
}
