// The program against simulated HTTP cameras and against servers that are not ours.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/RetrieverProgram.h"

using namespace testsupport;
using testing::AllOf;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;

namespace {

RetrieverProgram::Keys keysFor(int port, const RetrieverProgram::Keys& more = {}) {
  RetrieverProgram::Keys keys = more;
  keys.insert({{"PROTO", "HTTP"},
               {"DEVIP", "127.0.0.1"},
               {"HTTP_PORT", std::to_string(port)},
               {"HTTP_URL", "/stream"},
               {"MEDIA_FORMAT", "mjpg"},
               {"USRNAME", ""},
               {"PASSWD", ""}});
  return keys;
}

// A simulated camera on a port of its own.
struct HttpCamera {
  explicit HttpCamera(const std::vector<std::string>& options) : process(command(options)) {
    if (!process.awaitOutput("listening on ")) {
      throw std::runtime_error("camsim: " + process.output());
    }
    const std::string line = process.output();
    port = std::stoi(line.substr(line.find(':') + 1));
  }
  static std::vector<std::string> command(const std::vector<std::string>& options) {
    std::vector<std::string> words{builtProgram("camsim"), "http", "--port", "0", "--seconds", "2"};
    words.insert(words.end(), options.begin(), options.end());
    return words;
  }

  Subprocess process;
  int port = 0;
};

// Without connecting: some servers take one connection only.
bool awaitListening(int port) {
  char entry[32];
  snprintf(entry, sizeof entry, ":%04X 00000000:0000 0A", port);
  return eventually([&] {
    std::ifstream table("/proc/net/tcp");
    std::stringstream text;
    text << table.rdbuf();
    return text.str().find(entry) != std::string::npos;
  });
}

std::string recordingIn(const std::string& folder) {
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() == ".mkv") return entry.path();
  }
  return "";
}

// Codec and number of frames that decode; an error would stand in the text.
std::string decoded(const std::string& file) {
  return outputOf({"ffprobe", "-v", "error", "-count_frames", "-show_entries",
                   "stream=codec_name,nb_read_frames", "-of", "csv=p=0", file});
}

void write(const std::string& name, const std::string& text) {
  std::ofstream(name) << text;
}

struct Form {
  const char* name;
  const char* format;
  const char* codec;
  std::vector<std::string> options;
};
void PrintTo(const Form& form, std::ostream* out) {
  *out << form.name;
}
class HttpRecording : public testing::TestWithParam<Form> {};

}  // namespace

TEST_P(HttpRecording, PlaysWhole) {
  const Form& form = GetParam();
  std::vector<std::string> options{"--format", form.format};
  options.insert(options.end(), form.options.begin(), form.options.end());
  HttpCamera camera(options);
  TemporaryFolder folder;
  RetrieverProgram program(
      keysFor(camera.port,
              {{"MEDIA_FORMAT", form.format}, {"USRNAME", "admin"}, {"PASSWD", "secret"}}),
      {"--record", folder.path(), "--duration", "2.5"});
  ASSERT_EQ(program.wait(), 0) << program.output();
  const std::string result = decoded(recordingIn(folder.path()));
  ASSERT_THAT(result, testing::StartsWith(std::string(form.codec) + ","));
  const int frames = std::stoi(result.substr(result.find(',') + 1));
  EXPECT_THAT(frames, AllOf(Ge(45), Le(66))) << "25 a second";
  EXPECT_EQ(program.states(), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(
    Forms, HttpRecording,
    testing::Values(
        Form{"MotionJpeg", "mjpg", "mjpeg", {"--auth", "basic"}},
        Form{"MotionJpegWithoutLength", "mjpg", "mjpeg", {"--length", "none", "--auth", "digest"}},
        Form{
            "Mpeg4DigestWithQop",
            "mpeg4",
            "mpeg4",
            {"--length", "DataLen", "--auth", "digest", "--qop", "auth,auth-int", "--opaque", "o"}},
        Form{"H264",
             "h264",
             "h264",
             {"--auth", "digest", "--algorithm", "MD5-sess", "--qop", "auth"}}),
    [](const auto& form) { return std::string(form.param.name); });

TEST(HttpProgram, AudioIsTracedWithItsCodec) {
  HttpCamera camera({"--format", "audio", "--content-type", "audio/G723"});
  RetrieverProgram program(keysFor(camera.port, {{"MEDIA_FORMAT", "audio"}}));
  ASSERT_TRUE(program.awaitEvents("frame", 20)) << program.output();
  EXPECT_EQ(program.events("init")[0]["codec"].asString(), "G726-24");
  EXPECT_EQ(program.events("frame")[0]["size"].asInt(), 240);
  EXPECT_EQ(program.stop(SIGTERM), 0);
}

TEST(HttpProgram, ADroppedStreamComesBackAndAStaleNonceEndsIt) {
  HttpCamera camera({"--cut-inside", "5", "--auth", "digest", "--nonce-uses", "2"});
  RetrieverProgram program(keysFor(camera.port, {{"USRNAME", "admin"}, {"PASSWD", "secret"}}));
  EXPECT_EQ(program.wait(), 1);
  EXPECT_EQ(program.events("frame").size(), 10U) << "five of each connection";
  EXPECT_THAT(program.output(), HasSubstr("Connection was lost. Reconnecting..."));
  EXPECT_THAT(program.output(),
              HasSubstr("CRT-5011 Request failed. Server response: HTTP/1.0 401"));
  EXPECT_THAT(program.states(), testing::ElementsAre("STREAM_LOST NET_FAILURE",
                                                     "STREAM_LOST NET_FAILURE", "STREAM_LOST UNK"));
}

TEST(HttpProgram, BoschPicturesComeAtTheWantedRate) {
  HttpCamera camera({"--bosch", "--auth", "basic"});
  RetrieverProgram program(keysFor(camera.port, {{"CAMERAMODEL", "Bosch"},
                                                 {"FRAMERATE", "10"},
                                                 {"USRNAME", "admin"},
                                                 {"PASSWD", "secret"}}),
                           {"--duration", "2"});
  ASSERT_EQ(program.wait(), 0) << program.output();
  EXPECT_THAT(program.events("frame").size(), AllOf(Ge(14U), Le(24U)));
}

TEST(HttpServers, FfmpegsMultipartOutput) {
  const int port = freeTcpPort();
  Subprocess ffmpeg({"ffmpeg",
                     "-v",
                     "error",
                     "-nostdin",
                     "-re",
                     "-f",
                     "lavfi",
                     "-i",
                     "testsrc2=size=352x288:rate=25",
                     "-c:v",
                     "mjpeg",
                     "-q:v",
                     "5",
                     "-f",
                     "mpjpeg",
                     "-chunked_post",
                     "0",
                     "-listen",
                     "1",
                     "http://127.0.0.1:" + std::to_string(port) + "/stream"});
  ASSERT_TRUE(awaitListening(port)) << ffmpeg.output();
  TemporaryFolder folder;
  RetrieverProgram program(keysFor(port), {"--record", folder.path(), "--duration", "2"});
  ASSERT_EQ(program.wait(), 0) << program.output();
  const std::string result = decoded(recordingIn(folder.path()));
  EXPECT_THAT(result, testing::StartsWith("mjpeg,"));
  EXPECT_THAT(program.events("frame").size(), AllOf(Ge(35U), Le(55U)));
}

TEST(HttpServers, NginxServesBoschPictures) {
  TemporaryFolder folder;
  const std::string& base = folder.path();
  const std::string picture =
      outputOf({"ffmpeg", "-v", "error", "-nostdin", "-f", "lavfi", "-i", "testsrc2=size=352x288",
                "-frames:v", "1", "-f", "mjpeg", "-"});
  write(base + "/stream", picture);
  const int port = freeTcpPort();
  std::string temporary;
  for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
    temporary += std::string(kind) + "_temp_path " + base + "/" + kind + ";\n";
  }
  write(base + "/nginx.conf", "daemon off;\nmaster_process off;\npid " + base +
                                  "/pid;\nerror_log stderr;\nevents {}\n"
                                  "http {\naccess_log off;\n" +
                                  temporary + "server {\nlisten 127.0.0.1:" + std::to_string(port) +
                                  ";\nroot " + base + ";\n}\n}\n");
  Subprocess nginx({"/usr/sbin/nginx", "-p", base, "-e", "stderr", "-c", base + "/nginx.conf"});
  ASSERT_TRUE(awaitListening(port)) << nginx.output();
  RetrieverProgram program(keysFor(port, {{"CAMERAMODEL", "Bosch"}}));
  ASSERT_TRUE(program.awaitEvents("frame", 10)) << program.output();
  for (const auto& frame : program.events("frame")) {
    EXPECT_EQ(frame["size"].asUInt(), picture.size());
  }
  EXPECT_EQ(program.stop(SIGTERM), 0);
  EXPECT_EQ(program.states(), std::vector<std::string>{});
}

TEST(HttpServers, LighttpdsDigestIsAnswered) {
  TemporaryFolder folder;
  const std::string& base = folder.path();
  // Over a megabyte, so that the file's own length is no frame's.
  write(base + "/stream", outputOf({"ffmpeg", "-v", "error", "-nostdin", "-f", "lavfi", "-i",
                                    "testsrc2=size=352x288:rate=25", "-t", "6", "-c:v", "mjpeg",
                                    "-q:v", "3", "-f", "mpjpeg", "-"}));
  ASSERT_GT(std::filesystem::file_size(base + "/stream"), 1000000U);
  // md5("admin:camera:secret")
  write(base + "/users", "admin:camera:72824d40fd91988f34136479bb7c85ff\n");
  const int port = freeTcpPort();
  write(base + "/lighttpd.conf",
        "server.bind = \"127.0.0.1\"\nserver.port = " + std::to_string(port) +
            "\nserver.document-root = \"" + base +
            "\"\n"
            "server.modules = (\"mod_auth\", \"mod_authn_file\")\n"
            "auth.backend = \"htdigest\"\nauth.backend.htdigest.userfile = \"" +
            base +
            "/users\"\n"
            "auth.require = (\"\" => (\"method\" => \"digest\", \"realm\" => \"camera\", "
            "\"require\" => \"valid-user\"))\n");
  Subprocess lighttpd({"/usr/sbin/lighttpd", "-D", "-f", base + "/lighttpd.conf"});
  ASSERT_TRUE(awaitListening(port)) << lighttpd.output();
  RetrieverProgram program(keysFor(port, {{"USRNAME", "admin"}, {"PASSWD", "secret"}}));
  ASSERT_TRUE(program.awaitEvents("frame", 10)) << program.output();
  EXPECT_EQ(program.stop(SIGTERM), 0);
  RetrieverProgram refused(keysFor(port, {{"USRNAME", "admin"}, {"PASSWD", "wrong"}}));
  EXPECT_EQ(refused.wait(), 1);
  EXPECT_THAT(refused.output(), HasSubstr("CRT-5011"));
}
