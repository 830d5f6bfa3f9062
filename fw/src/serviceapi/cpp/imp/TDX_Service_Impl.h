#pragma once

#include <ace/TSS_T.h>
#include <ace/Task_Ex_T.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "TDX_Service.h"
#include "TDX_Transport.h"

// One accepted request on its way from the accepting thread, which makes it,
// to a worker, which deletes it. Without a protocol it tells a worker to end.
struct TDX_Service_Message_Type {
  std::shared_ptr<apache::thrift::protocol::TProtocol> protocol;
  std::shared_ptr<apache::thrift::TProcessor> processor;
  std::uint32_t userId = 0;
};

// The state behind a TDX_Service: the registry, the workers and their queue.
// One accepting thread a service fills the queue, workers empty it; it holds
// some 400 requests before accepting waits.
class TDX_Service_Impl : public ACE_Task_Ex<ACE_MT_SYNCH, TDX_Service_Message_Type>,
                         public TDX_Service::Registry {
 public:
  TDX_Service_Impl(const std::string& host, int port, const std::string& user,
                   const std::string& password, bool use_mbus);
  ~TDX_Service_Impl() override = default;

  int svc() override;
  using ACE_Task_Base::open;
  virtual int open(int thread_count);

  std::shared_ptr<apache::thrift::protocol::TProtocol> proto_(const std::string& service_name);
  void serve(int thread_count, int* stop_flag_ptr);
  void shutdown();
  static std::uint32_t current_user_id();

 private:
  static ACE_THR_FUNC_RETURN handle_messages(void* arg);
  void accept_requests(TDX_Server_Transport& listener,
                       const std::shared_ptr<apache::thrift::TProcessor>& processor);
  void add_listener(TDX_Server_Transport* listener);
  void remove_listener(TDX_Server_Transport* listener);
  void end_workers();

  std::string host;
  int port;
  std::string user;
  std::string password;
  std::atomic<int> stop{0};
  static ACE_TSS<ACE_TSS_Type_Adapter<unsigned int>> userId;
  bool use_mbus;

  std::mutex listeners_mutex;
  std::vector<TDX_Server_Transport*> listeners;  // open ones, for shutdown()
  std::mutex serving;                            // held while serve() runs
  int workers = 0;
};
