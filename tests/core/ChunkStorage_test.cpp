#include "ChunkStorage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <iterator>
#include <memory>

#include "support/RetrieverProgram.h"
#include "support/TcpPeer.h"

using namespace testsupport;

namespace {

constexpr uint32_t kRoom = 1000000;

using File = std::unique_ptr<FILE, int (*)(FILE*)>;
File open(const std::string& name) {
  return {fopen(name.c_str(), "r"), fclose};
}

struct Format {
  const char* encoder;
  const char* muxer;
  const char* demuxer;
  std::unique_ptr<Kelvane::ChunkStorageImpl> reader;
};

// Encoders with what cameras send: B frames and slices where the format has them.
const Format kFormats[] = {
    {"libx264 -preset veryfast -x264-params aud=1:slices=4", "h264", "h264",
     std::make_unique<Kelvane::H264ChunkStorageImpl>()},
    {"mpeg4 -bf 2 -ps 300", "m4v", "m4v", std::make_unique<Kelvane::M4VChunkStorageImpl>()},
    {"mpeg2video -bf 2", "mpeg2video", "mpegvideo",
     std::make_unique<Kelvane::MPEG2ChunkStorageImpl>()},
    {"mjpeg -q:v 3", "mjpeg", "mjpeg", std::make_unique<Kelvane::MJPGChunkStorageImpl>()},
};

std::vector<std::string> units(Kelvane::ChunkStorageImpl& reader, FILE* file,
                               uint32_t room = kRoom) {
  std::vector<uint8_t> buffer(room);
  std::vector<std::string> all;
  while (const int size = reader.readFrame(file, buffer.data(), room, nullptr)) {
    all.emplace_back(buffer.begin(), buffer.begin() + size);
  }
  return all;
}

}  // namespace

TEST(ChunkStorage, EachUnitIsOnePictureAndNothingIsLost) {
  const TemporaryFolder folder;
  const std::string clip = folder.path() + "/clip";
  const std::string first = folder.path() + "/first";
  for (const Format& format : kFormats) {
    SCOPED_TRACE(format.muxer);
    outputOf({"sh", "-c",
              std::string("ffmpeg -v error -nostdin -f lavfi -i testsrc2=size=352x288:rate=25 -t 3 "
                          "-pix_fmt yuv420p -g 12 -c:v ") +
                  format.encoder + " -y -f " + format.muxer + " " + clip});
    const auto pictures = [&](const std::string& name) {
      return std::stoul(
          outputOf({"ffprobe", "-v", "error", "-f", format.demuxer, "-count_frames", "-of",
                    "csv=p=0", "-show_entries", "stream=nb_read_frames", name}));
    };
    const auto all = units(*format.reader, open(clip).get());
    EXPECT_EQ(all.size(), pictures(clip));
    std::string joined;
    for (const std::string& unit : all) joined += unit;
    EXPECT_TRUE(joined == readFile(clip));
    // The headers stay with their picture: a decoder that joins at a unit can go on.
    writeFile(first, all[0]);
    EXPECT_EQ(pictures(first), 1U);
    // A file that was left halfway is read from its head the next time.
    std::vector<uint8_t> buffer(kRoom);
    const File file = open(clip);
    for (int i = 0; i < 5; ++i) format.reader->readFrame(file.get(), buffer.data(), kRoom, nullptr);
    EXPECT_TRUE(units(*format.reader, open(clip).get()) == all);
  }
}

// A unit without an end costs the file's length, not the square of it, whether
// it fits or is passed over.
TEST(ChunkStorage, TimeGrowsWithTheFile) {
  const char* const heads[] = {"00000001 67 42", "000001b6 10", "00000100 0008", "ffd8"};
  const TemporaryFolder folder;
  const std::string name = folder.path() + "/endless";
  for (std::size_t i = 0; i < std::size(heads); ++i) {
    const auto seconds = [&](std::size_t megabytes, bool fits) {
      writeFile(name, hex(heads[i]) + std::string(megabytes << 20, '\1'));
      std::vector<uint8_t> buffer(fits ? megabytes << 21 : kRoom);
      const File file = open(name);
      const clock_t begin = clock();
      const int size = kFormats[i].reader->readFrame(file.get(), buffer.data(),
                                                     static_cast<uint32_t>(buffer.size()), nullptr);
      EXPECT_EQ(size > 0, fits);
      return static_cast<double>(clock() - begin) / CLOCKS_PER_SEC;
    };
    for (const bool fits : {true, false}) {
      const double small = seconds(2, fits);
      // Eight times the file: the square would be 64 times the time.
      EXPECT_LT(seconds(16, fits), 24 * small + 0.2) << heads[i] << fits;
    }
  }
}

TEST(ChunkStorage, PassesOverAUnitThatDoesNotFit) {
  const TemporaryFolder folder;
  const std::string key = hex("00 00 00 01 67 42  00 00 01 65 88 11 22");
  const std::string slice = hex("00 00 00 01 41 9a 33");
  writeFile(folder.path() + "/clip", key + slice + std::string(300000, 'x') + slice + key);
  Kelvane::H264ChunkStorageImpl reader;
  testing::internal::CaptureStderr();
  EXPECT_THAT(units(reader, open(folder.path() + "/clip").get(), 1000),
              testing::ElementsAre(key, slice, key));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("larger than 1000 bytes"));
}
