#include "Recorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "ChunkStorage.h"
#include "Log4cppWrapper.h"
#include "support/RetrieverProgram.h"

using namespace testsupport;
using Kelvane::MEDIA_TYPE;
using testing::HasSubstr;

namespace {

constexpr long kEpoch = 1700000000;  // 2023-11-14T22:13:20Z

std::vector<std::string> accessUnits(const std::string& format, Kelvane::ChunkStorageImpl& reader) {
  const TemporaryFolder folder;
  outputOf({builtProgram("camsim"), "clip", "--seconds", "2", "--format", format,
            folder.path() + "/clip"});
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen((folder.path() + "/clip").c_str(), "r"),
                                                   fclose);
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

// A recorder and the judgement of ffprobe about what it wrote.
struct Recorded {
  explicit Recorded(const std::string& mediaFormat, double segmentSeconds = 3600)
      : recorder({folder.path() + "/new", "cam/7", mediaFormat, segmentSeconds}) {}

  void frame(MEDIA_TYPE media, const std::string& data, double seconds) {
    Kelvane::MediaFrame frame(static_cast<uint8_t*>(malloc(data.size() + 1)),
                              static_cast<uint32_t>(data.size()), media);
    memcpy(frame.data, data.data(), data.size());
    const double whole = std::floor(seconds);
    frame.tv = {kEpoch + static_cast<long>(whole), std::lround((seconds - whole) * 1e6)};
    recorder.onFrame(frame);
  }
  void video(const std::vector<std::string>& units, double from = 0) {
    for (std::size_t i = 0; i < units.size(); ++i) {
      frame(Kelvane::VIDEO, units[i], from + static_cast<double>(i) / 25);
    }
  }
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path() + "/new", none)) {
      if (entry.path().extension() == ".mkv") names.push_back(entry.path());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  static std::string probed(const std::string& file, const std::string& entries) {
    return outputOf({"ffprobe", "-v", "error", "-of", "csv=p=0", "-show_entries", entries, file});
  }
  static std::string decoded(const std::string& file) {  // complaints of the decoder
    return outputOf({"ffmpeg", "-v", "error", "-nostdin", "-i", file, "-f", "null", "-"});
  }
  static double seconds(const std::string& file) {
    return std::stod(probed(file, "format=duration"));
  }

  TemporaryFolder folder;
  host::Recorder recorder;
};

struct Case {
  const char* name;  // as the sink or MEDIA_FORMAT has it
  const char* clip;
  std::unique_ptr<Kelvane::ChunkStorageImpl> (*reader)();
  const char* stream;
};
template <class Reader>
std::unique_ptr<Kelvane::ChunkStorageImpl> make() {
  return std::make_unique<Reader>();
}

}  // namespace

TEST(Recorder, EveryVideoCodecPlaysWithSizeAndLength) {
  const Case cases[] = {
      {"h264", "h264", make<Kelvane::H264ChunkStorageImpl>, "h264,352,288"},
      {"mpeg4", "mpeg4", make<Kelvane::M4VChunkStorageImpl>, "mpeg4,352,288"},
      {"mpeg2", "mpeg2", make<Kelvane::MPEG2ChunkStorageImpl>, "mpeg2video,352,288"},
      {"mjpg", "mjpg", make<Kelvane::MJPGChunkStorageImpl>, "mjpeg,352,288"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Recorded recorded(c.name);
    const auto reader = c.reader();
    const auto units = accessUnits(c.clip, *reader);
    recorded.video(units);
    recorded.recorder.close();
    const auto files = recorded.files();
    ASSERT_EQ(files.size(), 1U);
    EXPECT_THAT(files[0], testing::EndsWith("/cam_7-20231114T221320Z.mkv"));
    EXPECT_THAT(Recorded::probed(files[0], "stream=codec_name,width,height"), HasSubstr(c.stream));
    EXPECT_EQ(Recorded::decoded(files[0]), "");
    EXPECT_NEAR(Recorded::seconds(files[0]), static_cast<double>(units.size()) / 25, 0.1);
    const std::string packets = Recorded::probed(files[0], "packet=pts_time");
    EXPECT_EQ(std::count(packets.begin(), packets.end(), '\n'),
              static_cast<std::ptrdiff_t>(units.size()));
  }
}

// As a streaming library delivers them: parameter sets first, then each NAL
// unit without start code and with a time of its own.
TEST(Recorder, SingleNalUnitsMakeTheSamePictures) {
  Recorded recorded("");
  recorded.recorder.onInit(Kelvane::VIDEO, "H264", "");
  const auto units = h264Units();
  for (std::size_t i = 0; i < units.size(); ++i) {
    std::size_t begin = units[i].find(std::string("\0\0\1", 3)) + 3;
    while (begin != std::string::npos) {
      const std::size_t next = units[i].find(std::string("\0\0\1", 3), begin);
      std::string nal = units[i].substr(begin, next - begin);
      while (!nal.empty() && nal.back() == '\0') nal.pop_back();
      recorded.frame(Kelvane::VIDEO, nal,
                     static_cast<double>(i) / 25 + static_cast<double>(begin) / 1e6);
      begin = next == std::string::npos ? next : next + 3;
    }
  }
  recorded.recorder.close();
  ASSERT_EQ(recorded.files().size(), 1U);
  const std::string packets = Recorded::probed(recorded.files()[0], "packet=pts_time");
  EXPECT_EQ(std::count(packets.begin(), packets.end(), '\n'),
            static_cast<std::ptrdiff_t>(units.size()));
  EXPECT_EQ(Recorded::decoded(recorded.files()[0]), "");
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
  recorded.recorder.close();
  const auto files = recorded.files();
  ASSERT_EQ(files.size(), 2U);
  EXPECT_THAT(Recorded::probed(files[0], "stream=codec_type"), testing::Not(HasSubstr("audio")));
  EXPECT_THAT(Recorded::probed(files[1], "stream=codec_name,sample_rate,channels"),
              HasSubstr("pcm_s16be,16000,2"));
  EXPECT_EQ(Recorded::decoded(files[1]), "");
  const std::string first =
      outputOf({"ffprobe", "-v", "error", "-of", "csv=p=0", "-select_streams", "a", "-show_entries",
                "packet=pts_time", "-read_intervals", "%+#1", files[1]});
  // Audio stood 20 ms behind each picture.
  EXPECT_NEAR(std::fmod(std::stod(first), 0.04), 0.02, 0.001);
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
    recorded.recorder.close();
    ASSERT_EQ(recorded.files().size(), 1U);
    EXPECT_THAT(Recorded::probed(recorded.files()[0], "stream=codec_name,sample_rate,channels"),
                HasSubstr(c.stream));
    EXPECT_GT(Recorded::seconds(recorded.files()[0]), 1.0);
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
  recorded.recorder.close();
  const auto files = recorded.files();
  ASSERT_EQ(files.size(), 4U);  // a key frame each second
  for (const std::string& file : files) {
    EXPECT_THAT(Recorded::probed(file, "packet=flags"), testing::StartsWith("K"));
    EXPECT_EQ(Recorded::decoded(file), "");
  }
}

TEST(Recorder, AClockThatIsSetBackDoesNotStopTheTime) {
  Recorded recorded("h264");
  const auto units = h264Units();
  recorded.video(units, 5000);
  recorded.video(units, 0);
  recorded.recorder.close();
  ASSERT_EQ(recorded.files().size(), 1U);
  EXPECT_NEAR(Recorded::seconds(recorded.files()[0]), 4, 0.2);
}

TEST(Recorder, AFolderThatCannotBeWrittenIsToldOnceAndTheRestGoesOn) {
  const TemporaryFolder folder;
  const std::string blocked = folder.path() + "/file";
  std::ofstream(blocked) << "no folder";
  testing::internal::CaptureStderr();
  Kelvane::Log4cppWrapper::init(600);
  host::Recorder recorder({blocked, "cam", "h264", 3600});
  for (const std::string& unit : h264Units()) {
    Kelvane::MediaFrame frame(static_cast<uint8_t*>(malloc(unit.size())),
                              static_cast<uint32_t>(unit.size()), Kelvane::VIDEO);
    memcpy(frame.data, unit.data(), unit.size());
    recorder.onFrame(frame);
  }
  recorder.close();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(log.find("Recording fails"), log.rfind("Recording fails")) << log;
  EXPECT_THAT(log, HasSubstr(blocked));
}

// A limit on the file's size stands for the full disk: it fails in mid-stream too.
TEST(Recorder, AFullDiskIsToldOnceAndWhatIsThereStillPlays) {
  signal(SIGXFSZ, SIG_IGN);
  testing::internal::CaptureStderr();
  Kelvane::Log4cppWrapper::init(600);
  Recorded recorded("h264");
  const auto units = h264Units();
  const rlimit full{150000, 150000};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
  for (double from : {0.0, 2.0, 4.0}) recorded.video(units, from);
  recorded.recorder.close();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(log, HasSubstr("Recording fails"));
  EXPECT_EQ(log.find("Recording fails"), log.rfind("Recording fails")) << log;
  ASSERT_EQ(recorded.files().size(), 1U);
  const std::string packets = Recorded::probed(recorded.files()[0], "packet=pts_time");
  EXPECT_GT(std::count(packets.begin(), packets.end(), '\n'), 12);
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
