// A Dante encoder: its parameters, the answer to their writing, the stream.
#include "DanteMediaProducerImpl.h"
#include "Stage.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Stage stage(data, size,
                    {{"DEVIP", "device"},
                     {"CAMERA", "1"},
                     {"IMAGESIZE", "fullsize"},
                     {"RC_MODE", "cbr"},
                     {"RC_MAXBITRATE", "2000"},
                     {"CAMCOMPRESSION", "2"},
                     {"FRAMERATE", "25"}});
  Kelvane::DanteMediaProducerImpl producer(stage.audio(), stage.video());
  Kelvane::UniqueFd parameters = stage.connect();
  fuzz::Stage::run([&] { producer.sendConfRequest(parameters.release()); });
  const Kelvane::UniqueFd stream = stage.connect();
  fuzz::Stage::run([&] { producer.receive_stream(stream.get()); });
  return 0;
}
