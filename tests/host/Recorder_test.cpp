#include "Recorder.h"

#include <signal.h>
#include <sys/resource.h>

#include <cmath>
#include <filesystem>

#include "ChunkStorage.h"
#include "Log4cppWrapper.h"
#include "support/RetrieverProgram.h"
#include "support/TestHost.h"

using namespace testsupport;
using Kelvane::MEDIA_TYPE;
using testing::HasSubstr;

namespace {

constexpr long kEpoch = 1700000000;  // 2023-11-14T22:13:20Z

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

std::vector<std::string> accessUnits(const std::string& format, Kelvane::ChunkStorageImpl& reader) {
  const TemporaryFolder folder;
  const std::string clip = folder.path() + "/clip";
  outputOf({builtProgram("camsim"), "clip", "--seconds", "2", "--format", format, clip});
  const File file(fopen(clip.c_str(), "r"), fclose);
  std::vector<uint8_t> buffer(1000000);
  std::vector<std::string> units;
  while (const int size = reader.readFrame(file.get(), buffer.data(), 1000000, nullptr)) {
    units.emplace_back(buffer.begin(), buffer.begin() + size);
  }
  return units;
}

std::vector<std::string> h264Units() {
  Kelvane::H264ChunkStorageImpl reader;
  return accessUnits("h264", reader);
}

// A recorder and what it wrote.
struct Recorded {
  explicit Recorded(const std::string& mediaFormat, double segmentSeconds = 3600,
                    const std::string& below = "/new")
      : recorder({folder.path() + below, "cam/7", mediaFormat, segmentSeconds}) {}

  void frame(MEDIA_TYPE media, const std::string& data, double seconds) {
    const double whole = std::floor(seconds);
    recorder.onFrame(*mediaFrame(
        data, media, {kEpoch + static_cast<long>(whole), std::lround((seconds - whole) * 1e6)}));
  }
  void video(const std::vector<std::string>& units, double from = 0) {
    for (std::size_t i = 0; i < units.size(); ++i) {
      frame(Kelvane::VIDEO, units[i], from + static_cast<double>(i) / 25);
    }
  }
  // The finished files.
  std::vector<std::string> files() {
    recorder.close();
    return recordingsIn(folder.path() + "/new");
  }
  static double seconds(const std::string& file) {
    return std::stod(probed(file, "format=duration"));
  }

  TemporaryFolder folder;
  host::Recorder recorder;
};

}  // namespace

TEST(Recorder, EveryVideoCodecPlaysWithSizeAndLength) {
  const struct {
    const char* format;
    std::unique_ptr<Kelvane::ChunkStorageImpl> reader;
    const char* stream;
  } cases[] = {
      {"h264", std::make_unique<Kelvane::H264ChunkStorageImpl>(), "h264"},
      {"mpeg4", std::make_unique<Kelvane::M4VChunkStorageImpl>(), "mpeg4"},
      {"mpeg2", std::make_unique<Kelvane::MPEG2ChunkStorageImpl>(), "mpeg2video"},
      {"mjpg", std::make_unique<Kelvane::MJPGChunkStorageImpl>(), "mjpeg"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.format);
    Recorded recorded(c.format);
    const auto units = accessUnits(c.format, *c.reader);
    recorded.video(units);
    const auto files = recorded.files();
    ASSERT_EQ(files.size(), 1U);
    EXPECT_THAT(files[0], testing::EndsWith("/cam_7-20231114T221320Z.mkv"));
    EXPECT_THAT(
        probed(files[0], "stream=codec_name,width,height,nb_read_frames"),
        testing::StartsWith(c.stream + std::string(",352,288,") + std::to_string(units.size())));
    EXPECT_NEAR(Recorded::seconds(files[0]), static_cast<double>(units.size()) / 25, 0.1);
  }
}

TEST(Recorder, AudioStaysInStepWithVideoAndLateAudioJoinsAtAKeyFrame) {
  Recorded recorded("h264");
  const auto units = h264Units();  // key frames at 0 and 1 s
  for (std::size_t i = 0; i < units.size(); ++i) {
    const double now = static_cast<double>(i) / 25;
    if (i == 10) recorded.recorder.onInit(Kelvane::AUDIO, "L16/16000/2", "");
    if (i >= 10) recorded.frame(Kelvane::AUDIO, std::string(2560, '\0'), now + 0.02);
    recorded.frame(Kelvane::VIDEO, units[i], now);
  }
  const auto files = recorded.files();
  ASSERT_EQ(files.size(), 2U);
  EXPECT_EQ(probed(files[0], "stream=codec_type"), "video\n");
  EXPECT_EQ(probed(files[1], "stream=codec_name,sample_rate,channels", "a"), "pcm_s16be,16000,2\n");
  EXPECT_EQ(complaintsOf(files[1]), "");
  // Audio stood 20 ms behind each picture.
  const double first = std::stod(probed(files[1], "packet=pts_time", "a"));
  EXPECT_NEAR(std::fmod(first, 0.04), 0.02, 0.001);
}

TEST(Recorder, EveryAudioCodecIsStoredAsItComes) {
  // 24 kbit/s MPEG audio layer 2 needs a real frame; the others take any bytes.
  const std::string mpa = outputOf({"ffmpeg", "-v", "error", "-nostdin", "-f", "lavfi", "-i",
                                    "sine=sample_rate=16000:duration=0.2", "-c:a", "mp2", "-b:a",
                                    "32k", "-f", "mp2", "-"})
                              .substr(0, 288);
  const struct {
    const char* codec;
    std::string config;
    std::string data;
    const char* stream;
  } cases[] = {
      {"PCMU", "", std::string(240, '\x7F'), "pcm_mulaw,8000,1"},
      {"PCMA", "", std::string(240, '\x55'), "pcm_alaw,8000,1"},
      {"L8", "", std::string(240, '\x80'), "pcm_u8,8000,1"},
      {"L16", "", std::string(240, '\0'), "pcm_s16be,8000,1"},
      {"G726-32", "", std::string(240, '\x11'), "adpcm_g726,8000,1"},
      {"MPEG4-GENERIC", std::string("\x14\x08", 2), std::string("\x01\x18\x20\x07", 4),
       "aac,16000,1"},
      {"MPA", "", mpa, "mp2,16000,1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.codec);
    Recorded recorded("");
    recorded.recorder.onInit(Kelvane::AUDIO, c.codec, c.config);
    for (int i = 0; i < 120; ++i) recorded.frame(Kelvane::AUDIO, c.data, i * 0.03);
    const auto files = recorded.files();
    ASSERT_EQ(files.size(), 1U);
    const std::string found =
        probed(files[0], "stream=codec_name,sample_rate,channels:format=duration");
    EXPECT_THAT(found, HasSubstr(c.stream));
    EXPECT_GT(std::stod(found.substr(found.find('\n') + 1)), 1.0);
  }
}

TEST(Recorder, G726ChangesItsBitOrderAsTheFileWantsIt) {
  const struct {
    int bits;
    std::vector<uint8_t> rtp;
    std::vector<uint8_t> file;
  } cases[] = {
      {4, {0x21, 0x43}, {0x12, 0x34}},
      {2, {0b11100100}, {0b00011011}},
      // 1, 2, 3, 4, 5, 6, 7, 0
      {3, {0b11010001, 0b01011000, 0b00011111}, {0b00101001, 0b11001011, 0b10111000}},
      {5, {0b01000001, 0x0C, 0, 0, 0}, {0b00001000, 0b10000110, 0, 0, 0}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(host::g726InFileOrder(c.rtp.data(), c.rtp.size(), c.bits), c.file) << c.bits;
  }
}

TEST(Recorder, SegmentsBeginAtKeyFrames) {
  Recorded recorded("h264", 0.5);
  const auto units = h264Units();
  recorded.video(units);
  recorded.video(units, 2);
  const auto files = recorded.files();
  ASSERT_EQ(files.size(), 4U);  // a key frame each second
  for (const std::string& file : files) {
    EXPECT_THAT(probed(file, "packet=flags"), testing::StartsWith("K"));
  }
}

TEST(Recorder, AClockThatIsSetBackDoesNotStopTheTime) {
  Recorded recorded("h264");
  const auto units = h264Units();
  recorded.video(units, 5000);
  recorded.video(units, 0);
  const auto files = recorded.files();
  ASSERT_EQ(files.size(), 1U);
  EXPECT_NEAR(Recorded::seconds(files[0]), 4, 0.2);
}

TEST(Recorder, AFolderThatCannotBeWrittenIsToldOnceAndTheRestGoesOn) {
  testing::internal::CaptureStderr();
  Kelvane::Log4cppWrapper::init(600);
  Recorded recorded("h264", 3600, "/file");
  std::filesystem::remove_all(recorded.folder.path() + "/file");
  writeFile(recorded.folder.path() + "/file", "no folder");
  recorded.video(h264Units());
  recorded.recorder.close();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(occurrences(log, "Recording fails"), 1) << log;
  EXPECT_THAT(log, HasSubstr(recorded.folder.path() + "/file"));
}

// A limit on the file's size stands for the full disk: it fails in mid-stream too.
TEST(Recorder, AFullDiskIsToldOnceAndWhatIsThereStillPlays) {
  signal(SIGXFSZ, SIG_IGN);
  testing::internal::CaptureStderr();
  Kelvane::Log4cppWrapper::init(600);
  Recorded recorded("h264");
  const auto units = h264Units();
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit full{150000, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
  for (double from : {0.0, 2.0, 4.0}) recorded.video(units, from);
  setrlimit(RLIMIT_FSIZE, &before);
  const auto files = recorded.files();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(occurrences(log, "Recording fails"), 1) << log;
  ASSERT_EQ(files.size(), 1U);
  EXPECT_GT(occurrences(probed(files[0], "packet=pts_time"), "\n"), 12);
}

TEST(Recorder, MetadataGoesIntoTheDatabase) {
  Recorded recorded("h264");
  recorded.frame(Kelvane::METADATA, std::string("\0\x01", 2), 3.5);
  recorded.recorder.write("cam 7", {kEpoch, 250000}, "metadata", R"({"tags":[]})");
  recorded.recorder.close();
  const std::string database = recorded.folder.path() + "/new/metadata.sqlite";
  EXPECT_EQ(
      outputOf({"sqlite3", database,
                "select device, seconds, microseconds, objects is null, hex(data) from frames;"
                "select device, seconds, microseconds, name, record from records"}),
      "cam_7|1700000003|500000|1|0001\n"
      "cam 7|1700000000|250000|metadata|{\"tags\":[]}\n");
}
