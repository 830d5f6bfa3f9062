#include "TDX_Service_Impl.h"

#include <ace/OS_NS_unistd.h>
#include <ace/Thread_Manager.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "TDX_CMS_Transport_Impl.h"
#include "TDX_MBUS_Transport_Impl.h"
#include "TDX_Protocol.h"

namespace {

// What an accepting thread starts with. Lives on serve()'s stack until the
// thread has taken its copy.
struct Assignment {
  TDX_Service_Impl* service;
  std::string name;
  std::atomic<bool> taken{false};
};

// A server transport together with the listening half of it.
template <class Transport>
std::pair<std::shared_ptr<TDX_Transport>, TDX_Server_Transport*> make(const std::string& name,
                                                                      const std::string& host,
                                                                      std::uint16_t port,
                                                                      const std::string& user,
                                                                      const std::string& password) {
  auto transport = std::make_shared<Transport>(name, host, port, user, password);
  return {transport, transport.get()};
}

}  // namespace

ACE_TSS<ACE_TSS_Type_Adapter<unsigned int>> TDX_Service_Impl::userId;

TDX_Service_Impl::TDX_Service_Impl(const std::string& broker_host, int broker_port,
                                   const std::string& broker_user,
                                   const std::string& broker_password, bool mbus)
    : host(broker_host),
      port(broker_port),
      user(broker_user),
      password(broker_password),
      use_mbus(mbus) {}

int TDX_Service_Impl::open(int thread_count) {
  return activate(THR_NEW_LWP, thread_count);
}

std::shared_ptr<apache::thrift::protocol::TProtocol> TDX_Service_Impl::proto_(
    const std::string& service_name) {
  const auto short_port = static_cast<std::uint16_t>(port);
  std::shared_ptr<TDX_Transport> transport;
  if (use_mbus) {
    transport =
        std::make_shared<TDX_MBUS_Transport_Impl>(service_name, host, short_port, user, password);
  } else {
    transport =
        std::make_shared<TDX_CMS_Transport_Impl>(service_name, host, short_port, user, password);
  }
  transport->open();
  return std::make_shared<TDX_Protocol>(transport);
}

void TDX_Service_Impl::serve(int thread_count, int* stop_flag_ptr) {
  const std::lock_guard<std::mutex> lock(serving);
  if (open(thread_count) == 0) workers = thread_count;
  ACE_Thread_Manager* threads = ACE_Thread_Manager::instance();
  int group = -1;
  for (const auto& [name, processor] : *this) {
    Assignment assignment{this, name};
    group =
        threads->spawn(handle_messages, &assignment, THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED,
                       nullptr, nullptr, ACE_DEFAULT_THREAD_PRIORITY, group);
    if (group == -1) throw std::runtime_error("Could not create thread");
    while (!assignment.taken) ACE_OS::thr_yield();
  }
  if (stop_flag_ptr != nullptr) {
    const volatile int* flag = stop_flag_ptr;  // the caller's, a signal handler's perhaps
    while (*flag == 0 && stop == 0) ACE_OS::sleep(ACE_Time_Value(0, 10000));
    stop = 1;
  }
  threads->wait_grp(group);
}

ACE_THR_FUNC_RETURN TDX_Service_Impl::handle_messages(void* arg) {
  auto* assignment = static_cast<Assignment*>(arg);
  TDX_Service_Impl& service = *assignment->service;
  const std::string name = assignment->name;
  assignment->taken = true;

  const auto create =
      service.use_mbus ? make<TDX_MBUS_Server_Transport_Impl> : make<TDX_CMS_Server_Transport_Impl>;
  const auto [transport, listener] = create(
      name, service.host, static_cast<std::uint16_t>(service.port), service.user, service.password);
  listener->open();
  const auto found = service.find(name);
  if (found == service.end()) throw std::invalid_argument(name);
  service.add_listener(listener);
  service.accept_requests(*listener, found->second);
  service.remove_listener(listener);
  return nullptr;
}

void TDX_Service_Impl::accept_requests(
    TDX_Server_Transport& listener, const std::shared_ptr<apache::thrift::TProcessor>& processor) {
  while (stop == 0) {
    try {
      const std::shared_ptr<TDX_Transport> transport(listener.accept());
      auto message = std::make_unique<TDX_Service_Message_Type>();
      message->protocol = std::make_shared<TDX_Protocol>(transport);
      message->processor = processor;
      message->userId = transport->user_id();
      if (putq(message.get()) != -1) static_cast<void>(message.release());
    } catch (const std::runtime_error& failure) {
      if (stop == 0)
        std::fprintf(stderr, "%s %d: %s\n", "TDX_Service_Impl", __LINE__, failure.what());
    } catch (...) {
      if (stop == 0)
        std::fprintf(stderr, "%s %d: Unknown exception\n", "TDX_Service_Impl", __LINE__);
    }
  }
}

int TDX_Service_Impl::svc() {
  TDX_Service_Message_Type* next = nullptr;
  while (getq(next) != -1) {
    const std::unique_ptr<TDX_Service_Message_Type> message(next);
    if (!message->protocol) break;
    userId->operator unsigned int&() = message->userId;
    // Processors answer their own failures. What is left is a message that
    // cannot be read or a reply that cannot be sent: its sender's loss alone.
    try {
      message->processor->process(message->protocol, message->protocol, nullptr);
    } catch (const std::exception& failure) {
      std::fprintf(stderr, "%s %d: %s\n", "TDX_Service_Impl", __LINE__, failure.what());
    } catch (...) {
      std::fprintf(stderr, "%s %d: Unknown exception\n", "TDX_Service_Impl", __LINE__);
    }
    userId->operator unsigned int&() = 0;
  }
  return 0;
}

void TDX_Service_Impl::shutdown() {
  {
    const std::lock_guard<std::mutex> lock(listeners_mutex);
    stop = 1;
    for (TDX_Server_Transport* listener : listeners) listener->interrupt();
  }
  const std::lock_guard<std::mutex> lock(serving);  // serve() has returned, or never ran
  end_workers();
}

void TDX_Service_Impl::end_workers() {
  for (; workers > 0; --workers) putq(new TDX_Service_Message_Type);
  wait();
}

// A listener that came up behind a shutdown() is woken here instead.
void TDX_Service_Impl::add_listener(TDX_Server_Transport* listener) {
  const std::lock_guard<std::mutex> lock(listeners_mutex);
  listeners.push_back(listener);
  if (stop != 0) listener->interrupt();
}

void TDX_Service_Impl::remove_listener(TDX_Server_Transport* listener) {
  const std::lock_guard<std::mutex> lock(listeners_mutex);
  listeners.erase(std::find(listeners.begin(), listeners.end(), listener));
}

std::uint32_t TDX_Service_Impl::current_user_id() {
  return userId->operator unsigned int&();
}
