// The program against simulated HTTP cameras and against servers that are not ours.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "support/RetrieverProgram.h"

using namespace testsupport;
using testing::AllOf;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;

namespace {

RetrieverProgram::Keys keysFor(const std::string& port, const RetrieverProgram::Keys& more = {}) {
  RetrieverProgram::Keys keys = more;
  keys.insert({{"PROTO", "HTTP"},
               {"DEVIP", "127.0.0.1"},
               {"HTTP_PORT", port},
               {"HTTP_URL", "/stream"},
               {"MEDIA_FORMAT", "mjpg"},
               {"USRNAME", ""},
               {"PASSWD", ""}});
  return keys;
}

// Codec and number of frames that decode.
std::pair<std::string, int> decoded(const std::string& folder) {
  const auto files = recordingsIn(folder);
  const std::string row =
      files.size() == 1 ? probed(files[0], "stream=codec_name,nb_read_frames") : ",0";
  return {row.substr(0, row.find(',')), std::stoi(row.substr(row.find(',') + 1))};
}

}  // namespace

TEST(HttpProgram, TheRecordingPlaysWhole) {
  const struct {
    const char *format, *codec;
    std::vector<std::string> options;
  } cases[] = {
      {"mjpg", "mjpeg", {"--length", "none", "--auth", "digest"}},
      {"mpeg4",
       "mpeg4",
       {"--length", "DataLen", "--auth", "digest", "--qop", "auth,auth-int", "--opaque", "o"}},
      {"h264", "h264", {"--auth", "digest", "--algorithm", "MD5-sess", "--qop", "auth"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.format);
    std::vector<std::string> options{"http", "--port", "0", "--seconds", "1", "--format", c.format};
    options.insert(options.end(), c.options.begin(), c.options.end());
    const SimulatedDevice camera(options);
    const TemporaryFolder folder;
    RetrieverProgram program(
        keysFor(camera.port,
                {{"MEDIA_FORMAT", c.format}, {"USRNAME", "admin"}, {"PASSWD", "secret"}}),
        {"--record", folder.path(), "--duration", "1.5"});
    ASSERT_EQ(program.wait(), 0) << program.output();
    const auto [codec, frames] = decoded(folder.path());
    EXPECT_EQ(codec, c.codec);
    EXPECT_THAT(frames, AllOf(Ge(22), Le(40))) << "25 a second";
    EXPECT_EQ(program.states(), std::vector<std::string>{});
  }
}

TEST(HttpProgram, AudioIsTracedWithItsCodec) {
  const SimulatedDevice camera(
      {"http", "--port", "0", "--format", "audio", "--content-type", "audio/G723"});
  RetrieverProgram program(keysFor(camera.port, {{"MEDIA_FORMAT", "audio"}}));
  ASSERT_TRUE(program.awaitEvents("frame", 20)) << program.output();
  EXPECT_EQ(program.events("init")[0]["codec"].asString(), "G726-24");
  EXPECT_EQ(program.events("frame")[0]["size"].asInt(), 240);
  EXPECT_EQ(program.stop(SIGTERM), 0);
}

TEST(HttpServers, FfmpegsMultipartOutput) {
  const int port = freeTcpPort();
  Subprocess ffmpeg({"sh", "-c",
                     "exec ffmpeg -v error -nostdin -re -f lavfi -i testsrc2=size=352x288:rate=25 "
                     "-c:v mjpeg -q:v 5 -f mpjpeg -chunked_post 0 -listen 1 http://127.0.0.1:" +
                         std::to_string(port) + "/stream"});
  ASSERT_TRUE(awaitPort("tcp", port)) << ffmpeg.output();
  const TemporaryFolder folder;
  RetrieverProgram program(keysFor(std::to_string(port)),
                           {"--record", folder.path(), "--duration", "1.5"});
  ASSERT_EQ(program.wait(), 0) << program.output();
  const auto [codec, frames] = decoded(folder.path());
  EXPECT_EQ(codec, "mjpeg");
  EXPECT_THAT(frames, AllOf(Ge(22), Le(40)));
}

TEST(HttpServers, NginxServesBoschPictures) {
  TemporaryFolder folder;
  const std::string& base = folder.path();
  const std::string picture =
      outputOf({"ffmpeg", "-v", "error", "-nostdin", "-f", "lavfi", "-i", "testsrc2=size=352x288",
                "-frames:v", "1", "-f", "mjpeg", "-"});
  writeFile(base + "/stream", picture);
  const int port = freeTcpPort();
  std::string temporary;
  for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
    temporary += std::string(kind) + "_temp_path " + base + "/" + kind + ";\n";
  }
  writeFile(base + "/nginx.conf", "daemon off;\nmaster_process off;\npid " + base +
                                      "/pid;\nerror_log stderr;\nevents {}\n"
                                      "http {\naccess_log off;\n" +
                                      temporary + "server {\nlisten 127.0.0.1:" +
                                      std::to_string(port) + ";\nroot " + base + ";\n}\n}\n");
  Subprocess nginx({"/usr/sbin/nginx", "-p", base, "-e", "stderr", "-c", base + "/nginx.conf"});
  ASSERT_TRUE(awaitPort("tcp", port)) << nginx.output();
  RetrieverProgram program(
      keysFor(std::to_string(port), {{"CAMERAMODEL", "Bosch"}, {"FRAMERATE", "10"}}),
      {"--duration", "1.5"});
  EXPECT_EQ(program.wait(), 0) << program.output();
  EXPECT_THAT(program.events("frame").size(), AllOf(Ge(10U), Le(18U))) << "at the wanted rate";
  for (const auto& frame : program.events("frame")) {
    EXPECT_EQ(frame["size"].asUInt(), picture.size());
  }
  EXPECT_EQ(program.states(), std::vector<std::string>{});
}

TEST(HttpServers, LighttpdsDigestIsAnswered) {
  TemporaryFolder folder;
  const std::string& base = folder.path();
  // Over a megabyte, so that the file's own length is no frame's.
  writeFile(base + "/stream", outputOf({"ffmpeg", "-v", "error", "-nostdin", "-f", "lavfi", "-i",
                                        "testsrc2=size=352x288:rate=25", "-t", "6", "-c:v", "mjpeg",
                                        "-q:v", "3", "-f", "mpjpeg", "-"}));
  ASSERT_GT(std::filesystem::file_size(base + "/stream"), 1000000U);
  // md5("admin:camera:secret")
  writeFile(base + "/users", "admin:camera:72824d40fd91988f34136479bb7c85ff\n");
  const int port = freeTcpPort();
  writeFile(base + "/lighttpd.conf",
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
  ASSERT_TRUE(awaitPort("tcp", port)) << lighttpd.output();
  RetrieverProgram program(
      keysFor(std::to_string(port), {{"USRNAME", "admin"}, {"PASSWD", "secret"}}));
  ASSERT_TRUE(program.awaitEvents("frame", 10)) << program.output();
  EXPECT_EQ(program.stop(SIGTERM), 0);
  RetrieverProgram refused(
      keysFor(std::to_string(port), {{"USRNAME", "admin"}, {"PASSWD", "wrong"}}));
  EXPECT_EQ(refused.wait(), 1);
  EXPECT_THAT(refused.output(), HasSubstr("CRT-5011"));
}
