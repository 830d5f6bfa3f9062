#include <signal.h>

#include "support/RetrieverProgram.h"
#include "support/TestHost.h"

using namespace testsupport;

// From the device's packets to a file that plays, joined in mid-frame.
TEST(VendorDevices, TheRecordingPlays) {
  const struct {
    const char *protocol, *model, *format, *codec;  // codec: as ffprobe names it
    std::vector<std::string> options;
  } cases[] = {{"samsung", "Samsung", "mpeg4", "mpeg4", {}},
               {"dante", "Dante", "mpeg4", "mpeg4", {"--second-headers"}},
               {"vsip", "Verint", "mpeg4", "mpeg4", {"--http-port", "5080"}},
               {"vsip", "Verint", "mjpg", "mjpeg", {"--http-port", "5080", "--format", "mjpg"}}};
  const std::string address = ownLoopbackAddress();
  for (const auto& each : cases) {
    SCOPED_TRACE(each.protocol);
    std::vector<std::string> command{each.protocol, "--address", address,
                                     "--mid-frame", "--seconds", "1"};
    command.insert(command.end(), each.options.begin(), each.options.end());
    SimulatedDevice device(command, std::string(each.protocol) + " on ");
    TemporaryFolder folder;
    RetrieverProgram program({{"PROTO", "HTTP"},
                              {"CAMERAMODEL", each.model},
                              {"MEDIA_FORMAT", each.format},
                              {"DEVIP", address},
                              {"USRNAME", "admin"},
                              {"PASSWD", "1234"},
                              {"FRAMERATE", "25"},
                              {"IMAGESIZE", "fullsize"},
                              {"CAMCOMPRESSION", "2"},
                              {"CAMERA", "1"},
                              {"RC_MODE", "cbr"},
                              {"RC_MAXBITRATE", "1000"},
                              {"VSIP_PORT", "5010"},
                              {"HTTP_PORT", "5080"},
                              {"VSIP_TARGET_SIP", "10.0.0.9"},
                              {"VSIP_SOURCE_GUID", "source"},
                              {"VSIP_TARGET_GUID", "target"},
                              {"DEFINEDUID", std::string(66, '7')}},
                             {"--record", folder.path()});
    ASSERT_TRUE(program.awaitEvents("frame", 30)) << program.output() << device.output();
    EXPECT_EQ(program.stop(SIGTERM), 0) << program.output();
    EXPECT_EQ(device.output().find("wrong"), std::string::npos) << device.output();

    const auto files = recordingsIn(folder.path());
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(probed(files[0], "stream=codec_name,width,height"),
              std::string(each.codec) + ",352,288\n");
  }
}
