// Frames of a broker: the handshake, deliveries, refusals, its form of UTF-8.
#include <cms/CMSException.h>

#include <cstdint>
#include <string_view>

#include "Commands.h"
#include "ModifiedUtf8.h"
#include "Wire.h"

namespace {

template <class Parse>
void expectOnlyCmsExceptions(Parse parse) {
  try {
    parse();
  } catch (const cms::CMSException&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view frame(reinterpret_cast<const char*>(data), size);
  expectOnlyCmsExceptions([&] { cms::openwire::parseWireFormat(frame); });
  expectOnlyCmsExceptions([&] {
    const cms::openwire::Delivery delivery = cms::openwire::parseDispatch(frame);
    cms::openwire::encodeFrame(delivery.acknowledgement, 1, false);
  });
  expectOnlyCmsExceptions([&] { cms::openwire::Reader(frame).throwable(); });
  // Both ways; what came out once is well-formed.
  const std::string utf8 = cms::openwire::fromModifiedUtf8(frame);
  if (cms::openwire::fromModifiedUtf8(cms::openwire::toModifiedUtf8(utf8)) != utf8) {
    __builtin_trap();
  }
  cms::openwire::toModifiedUtf8(frame);
  return 0;
}
