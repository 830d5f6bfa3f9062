#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "support/RetrieverProgram.h"

using namespace testsupport;

// A camera with a login, from the selection of the producer to a file that
// plays, and a session that the camera sees ended.
TEST(Pelco, VideoIsRecordedAndTheSessionDisconnected) {
  const TemporaryFolder folder;
  SimulatedDevice camera({"pelco", "--port", "0", "--auth", "digest"});
  RetrieverProgram program({{"PROTO", "HTTP"},
                            {"CAMERAMODEL", "Pelco"},
                            {"MODELID", "IXE20DN"},
                            {"DEVIP", "127.0.0.1"},
                            {"PELCO_SOAP_PORT", camera.port},
                            {"USRNAME", "admin"},
                            {"PASSWD", "secret"}},
                           {"--record", folder.path()});
  ASSERT_TRUE(program.awaitEvents("frame", 30)) << program.output() << camera.output();
  EXPECT_EQ(program.events("start").at(0)["producer"], "PelcoMediaProducerImpl");
  EXPECT_EQ(program.stop(SIGTERM), 0) << program.output();
  EXPECT_TRUE(camera.process.awaitOutput("Disconnect 17\n"));
  const auto files = recordingsIn(folder.path());
  ASSERT_EQ(files.size(), 1U);
  const std::string read = probed(files[0], "stream=codec_name,width,height,nb_read_frames");
  EXPECT_THAT(read, testing::StartsWith("h264,352,288,"));
  EXPECT_GT(std::stoi(read.substr(read.rfind(',') + 1)), 10) << read;
}
