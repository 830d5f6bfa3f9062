// Messages of the service interface, as a service gets them and as a client
// gets its answer.
#include <thrift/TApplicationException.h>

#include <cstdint>
#include <memory>
#include <string>

#include "ElogServices.h"
#include "TDX_Protocol.h"
#include "TDX_Transport.h"

namespace {

// What is sent goes nowhere.
class Sink : public TDX_Transport {
 public:
  using TDX_Transport::TDX_Transport;
  void on_buffer_ready(const std::string&) override {}
};

struct Handler : NV_TDX::ELogNull {
  void submitAction(NV_TDX::ActionResponse& answer, const NV_TDX::Action& action) override {
    answer.parameters = action.parameters;
  }
};

template <class Call>
void expectOnlyThriftExceptions(Call call) {
  try {
    call();
  } catch (const apache::thrift::TException&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string message(reinterpret_cast<const char*>(data), size);
  const auto protocol = [&] {
    return std::make_shared<TDX_Protocol>(std::make_shared<Sink>(7U, message));
  };
  expectOnlyThriftExceptions([&] {
    const auto both = protocol();
    NV_TDX::ELogProcessor(std::make_shared<Handler>()).process(both, both, nullptr);
  });
  expectOnlyThriftExceptions([&] {
    const auto both = protocol();
    NV_TDX::ELogNotificationProcessor(std::make_shared<NV_TDX::ELogNotificationNull>())
        .process(both, both, nullptr);
  });
  expectOnlyThriftExceptions([&] {
    NV_TDX::ActionResponse answer;
    NV_TDX::ELogClient(protocol()).recv_submitAction(answer);
  });
  expectOnlyThriftExceptions([&] {
    NV_TDX::Event event;
    event.read(protocol().get());
  });
  return 0;
}
