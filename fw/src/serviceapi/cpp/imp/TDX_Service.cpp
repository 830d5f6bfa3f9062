#include "TDX_Service.h"

#include "TDX_Service_Impl.h"

namespace {

TDX_Service_Impl& implementation(TDX_Service::Registry* registry) {
  return static_cast<TDX_Service_Impl&>(*registry);
}

}  // namespace

TDX_Service::TDX_Service(const std::string& host, int port, const std::string& user,
                         const std::string& password, Transport_Type t)
    : smap_(new TDX_Service_Impl(host, port, user, password, t == Transport_MBUS)) {}

TDX_Service::~TDX_Service() {
  delete &implementation(smap_);
}

std::shared_ptr<apache::thrift::protocol::TProtocol> TDX_Service::proto_(
    const std::string& service_name) {
  return implementation(smap_).proto_(service_name);
}

void TDX_Service::add_processor(const std::string& service_name,
                                std::shared_ptr<apache::thrift::TProcessor> processor) {
  (*smap_)[service_name] = std::move(processor);
}

void TDX_Service::serve(int thread_count, int* stop_flag_ptr) {
  implementation(smap_).serve(thread_count, stop_flag_ptr);
}

void TDX_Service::shutdown() {
  implementation(smap_).shutdown();
}

std::uint32_t TDX_Service::getUserId() {
  return TDX_Service_Impl::current_user_id();
}
