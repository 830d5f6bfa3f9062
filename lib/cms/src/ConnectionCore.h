#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "BrokerUri.h"
#include "Commands.h"
#include "Socket.h"
#include "cms/ExceptionListener.h"

namespace cms::openwire {

// What arrived for one consumer. Guarded by its connection's mutex.
struct Inbox {
  std::deque<Delivery> waiting;
  bool closed = false;
};

// The link to the broker behind a connection and all that was made from it.
// A thread of its own connects, logs in and reads; where the address asks for
// it, it renews a lost link with growing delays and announces everything anew.
// Any other thread may call; its calls wait for a link that is being renewed.
class ConnectionCore {
 public:
  ConnectionCore(const BrokerUri& uri, const std::string& user, const std::string& password);
  ~ConnectionCore();

  // Waits for the first link; throws CMSException when it does not come about.
  void open();
  // Ends the link and makes all calls fail from here on. Again: no effect.
  void close();

  // Sends and waits for the broker's answer, again on each new link, until the
  // limit is over. Throws CMSException, also with the broker's refusal.
  void request(const OutCommand& command, int limitMs);
  void request(const OutCommand& command) { request(command, uri_.answerLimitMs); }
  void send(const OutCommand& command);
  int sendLimitMs() const { return uri_.sendLimit(); }

  // Announces an object, now and on each new link, until it is withdrawn. Its
  // session takes its objects with it.
  void announce(const std::string& id, std::uint64_t session, const OutCommand& info);
  void withdraw(const std::string& id);
  void withdrawSession(std::uint64_t session, const std::string& id);

  std::shared_ptr<Inbox> openInbox(const std::string& consumer);
  void closeInbox(const std::string& consumer, const std::shared_ptr<Inbox>& inbox);
  // Acknowledges what it returns. Null when nothing came in time (a null
  // deadline: no limit) or the inbox is closed. Throws when the link is gone
  // for good.
  std::unique_ptr<Message> receive(Inbox& inbox, const Clock::time_point* deadline);
  void setDelivering(bool on);

  void setListener(ExceptionListener* listener) { listener_ = listener; }
  ExceptionListener* listener() const { return listener_; }
  const std::string& name() const { return name_; }
  std::uint64_t nextNumber() { return ++numbers_; }

 private:
  struct Object {
    std::string id;
    std::uint64_t session;
    OutCommand info;
  };
  struct Pending {
    enum { kWaiting, kAnswered, kRefused, kLost } state = kWaiting;
    std::string refusal;
  };

  void run();
  bool givesUp(std::size_t turn) const;
  void connectLink(const BrokerUri::Endpoint& endpoint);
  void replay();
  void exchange(const OutCommand& command);
  [[noreturn]] void serve();
  void handle(const std::string& frame);
  void dispatch(std::string_view body);
  void answered(std::string_view body, bool refused);
  void dropLink(const std::string& why);
  void fail(const std::string& why);
  bool write(std::string_view frame, std::optional<std::uint64_t> generation = {});
  void awaitLink(std::unique_lock<std::mutex>& lock, Clock::time_point deadline);

  const BrokerUri uri_;
  const std::string user_, password_;
  const std::string name_;  // the connection's id
  std::atomic<std::uint64_t> numbers_{0};
  std::atomic<std::uint32_t> commandIds_{0};
  std::atomic<ExceptionListener*> listener_{nullptr};
  std::atomic<bool> closing_{false};

  // Of the I/O thread alone.
  int inactivityMs_ = 0;
  Clock::time_point upSince_{};

  // Taken before mutex_. The I/O thread changes link_ and up_ under both.
  std::mutex writeMutex_;
  std::shared_ptr<Socket> link_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool up_ = false;
  bool everUp_ = false;
  bool delivering_ = false;
  std::uint64_t generation_ = 0;  // counts links
  std::string failure_;           // set: no link will ever come again
  std::string lastError_;
  std::uint64_t objectNumbers_ = 0;
  std::map<std::uint64_t, Object> objects_;  // in the order of their making
  std::map<std::uint32_t, std::shared_ptr<Pending>> pending_;
  std::map<std::string, std::shared_ptr<Inbox>> inboxes_;

  std::mutex closeMutex_;
  std::thread thread_;
};

}  // namespace cms::openwire
