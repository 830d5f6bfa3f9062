// A Verint device's stream, from the answer to the request on. The first byte
// picks the format.
#include "Stage.h"
#include "VSIPMediaProducerImpl.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  fuzz::Stage stage(data + 1, size - 1,
                    {{"MEDIA_FORMAT", (data[0] & 1) != 0 ? "mpeg4" : "mjpg"},
                     {"DEVIP", "device"},
                     {"VSIP_PORT", "1"},
                     {"DEFINEDUID", std::string(66, '0')},
                     {"FRAMERATE", "1000000"}});
  Kelvane::VSIPMediaProducerImpl producer(stage.audio(), stage.video());
  fuzz::Stage::run([&] { producer.start(); });
  return 0;
}
