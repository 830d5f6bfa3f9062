// HTTP and Bosch cameras from the status line to the last frame. The first
// byte picks format and model; each connection gets a section of the rest.
#include <array>

#include "BoschMediaProducerImpl.h"
#include "HTTPMediaProducerImpl.h"
#include "Stage.h"

namespace {

struct Camera {
  const char* format;
  const char* model;
};
constexpr std::array<Camera, 8> kCameras{{{"mjpg", "any"},
                                          {"mpeg4", "any"},
                                          {"h264", "any"},
                                          {"audio", "any"},
                                          {"audio", "panasonic"},
                                          {"mjpg", "Pelco"},
                                          {"mjpg", "Bosch"},
                                          {"other", "any"}}};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t kind = data[0] % kCameras.size();
  fuzz::Stage stage(data + 1, size - 1,
                    {{"MEDIA_FORMAT", kCameras[kind].format},
                     {"CAMERAMODEL", kCameras[kind].model},
                     {"MODELID", "BL-C210A"},
                     {"PROTO", "HTTP"},
                     {"DEVIP", "device"},
                     {"HTTP_URL", "/video"},
                     {"USRNAME", "user"},
                     {"PASSWD", "p%41ss"},
                     {"FRAMERATE", "1000000"}});
  fuzz::Stage::run([&] {
    if (kCameras[kind].model == std::string("Bosch")) {
      Kelvane::BoschMediaProducerImpl(stage.audio(), stage.video()).start();
    } else {
      Kelvane::HTTPMediaProducerImpl(stage.audio(), stage.video()).start();
    }
  });
  return 0;
}
