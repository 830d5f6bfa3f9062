#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "support/RetrieverProgram.h"

using namespace testsupport;

// A camera with a login, from the selection of the producer to a file that
// plays, and a session that the camera sees ended.
TEST(Pelco, VideoIsRecordedAndTheSessionDisconnected) {
  const TemporaryFolder folder;
  Subprocess camera({builtProgram("camsim"), "pelco", "--port", "0", "--auth", "digest"});
  ASSERT_TRUE(camera.awaitOutput("listening on ")) << camera.output();
  const std::string line = camera.output();
  const std::string port = line.substr(line.rfind(':') + 1, line.find('\n') - line.rfind(':') - 1);
  RetrieverProgram program({{"PROTO", "HTTP"},
                            {"CAMERAMODEL", "Pelco"},
                            {"MODELID", "IXE20DN"},
                            {"DEVIP", "127.0.0.1"},
                            {"PELCO_SOAP_PORT", port},
                            {"USRNAME", "admin"},
                            {"PASSWD", "secret"}},
                           {"--record", folder.path()});
  ASSERT_TRUE(program.awaitEvents("frame", 60)) << program.output() << camera.output();
  EXPECT_EQ(program.events("start").at(0)["producer"], "PelcoMediaProducerImpl");
  EXPECT_EQ(program.stop(SIGTERM), 0) << program.output();
  EXPECT_TRUE(camera.awaitOutput("Disconnect 17\n"));
  std::string file = "no file";
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    if (entry.path().extension() == ".mkv") file = entry.path();
  }
  const std::string read =
      outputOf({"ffprobe", "-v", "error", "-count_frames", "-of", "csv=p=0", "-show_entries",
                "stream=codec_name,width,height,nb_read_frames", file});
  EXPECT_THAT(read, testing::StartsWith("h264,352,288,"));
  EXPECT_GT(std::stoi(read.substr(read.rfind(',') + 1)), 10) << read;
}
