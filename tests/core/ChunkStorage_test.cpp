#include "ChunkStorage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>

#include "support/RetrieverProgram.h"

using namespace testsupport;

namespace {

constexpr uint32_t kRoom = 1000000;

using File = std::unique_ptr<FILE, int (*)(FILE*)>;
File open(const std::string& name) {
  return {fopen(name.c_str(), "r"), fclose};
}

template <class Storage>
std::unique_ptr<Kelvane::ChunkStorageImpl> make() {
  return std::make_unique<Storage>();
}

struct Format {
  const char* name;
  const char* encoder;
  const char* muxer;
  const char* demuxer;
  std::unique_ptr<Kelvane::ChunkStorageImpl> (*reader)();
};
void PrintTo(const Format& format, std::ostream* out) {
  *out << format.name;
}

// Encoders with what cameras send: B frames and slices where the format has them.
const Format kFormats[] = {
    {"h264", "libx264 -preset veryfast -x264-params aud=1:slices=4", "h264", "h264",
     make<Kelvane::H264ChunkStorageImpl>},
    {"mpeg4", "mpeg4 -bf 2 -ps 300", "m4v", "m4v", make<Kelvane::M4VChunkStorageImpl>},
    {"mpeg2", "mpeg2video -bf 2", "mpeg2video", "mpegvideo", make<Kelvane::MPEG2ChunkStorageImpl>},
    {"mjpg", "mjpeg -q:v 3", "mjpeg", "mjpeg", make<Kelvane::MJPGChunkStorageImpl>},
};

std::string contents(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> units(Kelvane::ChunkStorageImpl& reader, FILE* file,
                               uint32_t room = kRoom) {
  std::vector<uint8_t> buffer(room);
  std::vector<std::string> all;
  while (const int size = reader.readFrame(file, buffer.data(), room, nullptr)) {
    all.emplace_back(buffer.begin(), buffer.begin() + size);
  }
  return all;
}

class ChunkStorageFiles : public testing::TestWithParam<Format> {
 protected:
  void SetUp() override {
    outputOf({"sh", "-c",
              std::string("ffmpeg -v error -nostdin -f lavfi -i testsrc2=size=352x288:rate=25 -t 3 "
                          "-pix_fmt yuv420p -g 12 -c:v ") +
                  GetParam().encoder + " -f " + GetParam().muxer + " " + clip_});
  }
  unsigned long frames(const std::string& name) const {
    return std::stoul(outputOf({"ffprobe", "-v", "error", "-f", GetParam().demuxer, "-count_frames",
                                "-of", "csv=p=0", "-show_entries", "stream=nb_read_frames", name}));
  }

  const TemporaryFolder folder_;
  const std::string clip_ = folder_.path() + "/clip";
  const std::unique_ptr<Kelvane::ChunkStorageImpl> reader_ = GetParam().reader();
};

}  // namespace

TEST_P(ChunkStorageFiles, EachUnitIsOnePictureAndNothingIsLost) {
  const auto all = units(*reader_, open(clip_).get());
  EXPECT_EQ(all.size(), frames(clip_));
  std::string joined;
  for (const std::string& unit : all) joined += unit;
  EXPECT_TRUE(joined == contents(clip_));
  // The headers stay with their picture: a decoder that joins at a unit can go on.
  const std::string first = folder_.path() + "/first";
  std::ofstream(first, std::ios::binary) << all[0];
  EXPECT_EQ(frames(first), 1U);
  // A file that was left halfway is read from its head the next time.
  std::vector<uint8_t> buffer(kRoom);
  const File file = open(clip_);
  for (int i = 0; i < 5; ++i) reader_->readFrame(file.get(), buffer.data(), kRoom, nullptr);
  EXPECT_TRUE(units(*reader_, open(clip_).get()) == all);
}

// A unit without an end costs the file's length, not the square of it, whether
// it fits or is passed over.
TEST_P(ChunkStorageFiles, TimeGrowsWithTheFile) {
  const auto seconds = [&](std::size_t megabytes, bool fits) {
    const std::string name = folder_.path() + "/endless";
    std::ofstream(name, std::ios::binary)
        << contents(clip_).substr(0, 100) << std::string(megabytes << 20, '\xAA');
    std::vector<uint8_t> buffer(fits ? megabytes << 21 : kRoom);
    const File file = open(name);
    const clock_t begin = clock();
    const int size = reader_->readFrame(file.get(), buffer.data(),
                                        static_cast<uint32_t>(buffer.size()), nullptr);
    EXPECT_EQ(size > 0, fits);
    return static_cast<double>(clock() - begin) / CLOCKS_PER_SEC;
  };
  for (const bool fits : {true, false}) {
    const double small = seconds(2, fits);
    // Eight times the file: the square would be 64 times the time.
    EXPECT_LT(seconds(16, fits), 24 * small + 0.2) << (fits ? "fits" : "is passed over");
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, ChunkStorageFiles, testing::ValuesIn(kFormats),
                         [](const auto& test) { return std::string(test.param.name); });
