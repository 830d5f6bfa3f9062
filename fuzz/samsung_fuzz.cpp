// A Samsung DVR: the answers of the control connection, then the stream. The
// first byte picks the format.
#include "SamsungMediaProducerImpl.h"
#include "Stage.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const bool mpeg4 = (data[0] & 1) != 0;
  fuzz::Stage stage(data + 1, size - 1,
                    {{"MEDIA_FORMAT", mpeg4 ? "mpeg4" : "mjpg"},
                     {"USRNAME", "user"},
                     {"PASSWD", "12345678"},
                     {"IMAGESIZE", "fullsize"},
                     {"CAMCOMPRESSION", "2"},
                     {"FRAMERATE", "1000000"}});
  Kelvane::SamsungMediaProducerImpl producer(stage.audio(), stage.video());
  const Kelvane::UniqueFd control = stage.connect();
  fuzz::Stage::run([&] { producer.sendConnectAndConfRequests(control.get()); });
  const Kelvane::UniqueFd stream = stage.connect();
  fuzz::Stage::run([&] {
    if (mpeg4) {
      producer.receive_mpeg4(stream.get());
    } else {
      producer.receive_mjpg(stream.get());
    }
  });
  return 0;
}
