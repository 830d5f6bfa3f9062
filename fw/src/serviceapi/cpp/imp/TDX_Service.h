#pragma once

#include <thrift/TProcessor.h>
#include <thrift/protocol/TProtocol.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

// Reaches the system's named services, and serves them, over the message bus
// or a broker. The thin face of TDX_Service_Impl, which holds all state.
class TDX_Service {
 public:
  enum Transport_Type { Transport_MBUS = 0, Transport_CMS = 1 };
  using Registry = std::map<std::string, std::shared_ptr<apache::thrift::TProcessor>>;

  // Connects nothing. The bus ignores the login; a port is cut to 16 bits.
  TDX_Service(const std::string& host, int port, const std::string& user,
              const std::string& password, Transport_Type t);
  // A protocol from proto_() stays valid. After serve(), call shutdown() first.
  virtual ~TDX_Service();
  TDX_Service(const TDX_Service&) = delete;
  TDX_Service& operator=(const TDX_Service&) = delete;

  // A private channel to a service, for a generated client. One thread at a
  // time may use it. Throws std::runtime_error when it cannot be opened.
  std::shared_ptr<apache::thrift::protocol::TProtocol> proto_(const std::string& service_name);

  // Before serve(): requests for `service_name` go to `processor`, from several
  // threads at once.
  void add_processor(const std::string& service_name,
                     std::shared_ptr<apache::thrift::TProcessor> processor);
  // Serves what was added, with so many workers, and blocks. Once
  // *stop_flag_ptr is non-zero it returns when each service has had one more
  // message; a null pointer leaves the end to shutdown().
  void serve(int thread_count, int* stop_flag_ptr);
  // Ends serving now: wakes blocked accepts, lets workers finish the requests
  // that were accepted, and waits for them. From any thread but a worker's.
  void shutdown();

  // In a handler: the user id of the request at hand; elsewhere 0.
  std::uint32_t getUserId();

 private:
  Registry* smap_;  // a part of the TDX_Service_Impl, which is owned
};
