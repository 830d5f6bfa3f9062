#include "ConnectionCore.h"

#include <algorithm>
#include <random>

#include "Wire.h"
#include "cms/CMSException.h"

namespace cms::openwire {
namespace {

using std::chrono::milliseconds;

constexpr int kFirstDelayMs = 10, kLongestDelayMs = 2000;
constexpr milliseconds kStableAfter{5000};  // then delays start from the first again
constexpr int kCloseLimitMs = 1000;

// The broker answered, and said no.
class Refused : public CMSException {
 public:
  using CMSException::CMSException;
};

std::string uniqueName() {
  std::random_device device;
  std::string name = "ID:mretriever";
  for (int i = 0; i < 4; ++i) name += "-" + std::to_string(device());
  return name;
}

}  // namespace

ConnectionCore::ConnectionCore(const BrokerUri& uri, const std::string& user,
                               const std::string& password)
    : uri_(uri), user_(user), password_(password), name_(uniqueName()) {}

ConnectionCore::~ConnectionCore() {
  close();
}

void ConnectionCore::open() {
  thread_ = std::thread([this] { run(); });
  std::string why;
  {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, milliseconds(uri_.answerLimitMs),
                      [this] { return everUp_ || !failure_.empty(); });
    if (everUp_) return;
    why = !failure_.empty() ? failure_ : lastError_;
  }
  close();
  throw CMSException(why.empty() ? "the broker does not answer" : why);
}

void ConnectionCore::close() {
  const std::lock_guard<std::mutex> closing(closeMutex_);
  closing_ = true;
  if (thread_.joinable()) {
    write(encodeFrame(removeInfo(connectionId(name_)), ++commandIds_, false));
    write(encodeFrame({kShutdownInfo, ""}, ++commandIds_, false));
    {
      const std::lock_guard<std::mutex> lock(writeMutex_);
      if (link_) link_->shutdown();
    }
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      changed_.notify_all();
    }
    thread_.join();
  }
  fail("the connection is closed");
}

void ConnectionCore::run() {
  int delayMs = kFirstDelayMs;
  for (std::size_t turn = 0; !closing_; ++turn) {
    try {
      connectLink(uri_.endpoints[turn % uri_.endpoints.size()]);
      serve();
    } catch (const Refused& refusal) {
      dropLink(refusal.what());
      if (!everUp_) return fail(refusal.what());
    } catch (const std::exception& error) {
      dropLink(error.what());
      if (!closing_ && (!uri_.failover || givesUp(turn))) return fail(error.what());
    }
    if (upSince_ != Clock::time_point{} && Clock::now() - upSince_ > kStableAfter)
      delayMs = kFirstDelayMs;
    upSince_ = {};
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, milliseconds(delayMs), [this] { return closing_.load(); });
    delayMs = std::min(delayMs * 2, kLongestDelayMs);
  }
}

// Whether the first link was tried for as often as the address allows.
bool ConnectionCore::givesUp(std::size_t turn) const {
  return !everUp_ && uri_.firstRounds > 0 &&
         (turn + 1) / uri_.endpoints.size() >= static_cast<std::size_t>(uri_.firstRounds);
}

void ConnectionCore::connectLink(const BrokerUri::Endpoint& endpoint) {
  const auto deadline = Clock::now() + milliseconds(uri_.answerLimitMs);
  auto link = std::make_shared<Socket>(endpoint, deadline, uri_.answerLimitMs, closing_);
  {
    const std::lock_guard<std::mutex> lock(writeMutex_);
    link_ = link;
    if (closing_) link_->shutdown();
  }
  link->writeFrame(wireFormatFrame(uri_.maxInactivityMs));
  const WireFormat format = parseWireFormat(link->readFrame(deadline));
  inactivityMs_ =
      static_cast<int>(std::min<std::int64_t>(uri_.maxInactivityMs, format.maxInactivityMs));
  exchange(connectionInfo(connectionId(name_), user_, password_, uri_.failover, everUp_));
  replay();
  upSince_ = Clock::now();
}

// Announces all objects on a link that nobody else writes to yet. One that was
// withdrawn meanwhile must not stay behind: a consumer would swallow messages.
void ConnectionCore::replay() {
  std::map<std::uint64_t, Object> announced;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    announced = objects_;
  }
  for (const auto& [number, object] : announced) exchange(object.info);
  for (;;) {
    std::string withdrawn;
    {
      const std::lock_guard<std::mutex> writing(writeMutex_);
      const std::lock_guard<std::mutex> lock(mutex_);
      const auto gone = std::find_if(announced.begin(), announced.end(), [this](const auto& entry) {
        return objects_.count(entry.first) == 0;
      });
      if (gone == announced.end()) {
        ++generation_;
        up_ = everUp_ = true;
        changed_.notify_all();
        return;
      }
      withdrawn = gone->second.id;
      announced.erase(gone);
    }
    try {
      exchange(removeInfo(withdrawn));
    } catch (const Refused&) {  // its session went first
    }
  }
}

// A request of the I/O thread itself, while the link comes up.
void ConnectionCore::exchange(const OutCommand& command) {
  const std::uint32_t id = ++commandIds_;
  const auto waiting = std::make_shared<Pending>();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    pending_[id] = waiting;
  }
  link_->writeFrame(encodeFrame(command, id, true));
  const auto deadline = Clock::now() + milliseconds(uri_.answerLimitMs);
  while (waiting->state == Pending::kWaiting) handle(link_->readFrame(deadline));
  if (waiting->state == Pending::kRefused) throw Refused(waiting->refusal);
}

void ConnectionCore::serve() {
  const int sliceMs = inactivityMs_ > 0 ? std::max(1, inactivityMs_ / 3) : -1;
  auto heard = Clock::now();
  for (;;) {
    if (link_->awaitData(sliceMs)) {
      handle(link_->readFrame(Clock::now() + milliseconds(uri_.answerLimitMs)));
      heard = Clock::now();
    } else if (Clock::now() - heard > milliseconds(inactivityMs_)) {
      throw CMSException("nothing heard from the broker for " + std::to_string(inactivityMs_) +
                         " ms");
    }
    if (sliceMs > 0) write(encodeFrame({kKeepAliveInfo, ""}, ++commandIds_, false));
  }
}

void ConnectionCore::handle(const std::string& frame) {
  Reader in(frame);
  const std::uint8_t type = in.u8();
  if (type == kWireFormatInfo) return;
  const std::uint32_t id = in.u32();
  const bool wantsAnswer = in.boolean();
  constexpr std::size_t kHead = 6;
  const std::string_view body = std::string_view(frame).substr(kHead);
  switch (type) {
    case kResponse:
      return answered(body, false);
    case kExceptionResponse:
      return answered(body, true);
    case kMessageDispatch:
      dispatch(body);
      break;
    case kShutdownInfo:
      throw CMSException("the broker is shutting down");
    case kConnectionError:
      if (ExceptionListener* listener = listener_)
        listener->onException(CMSException(in.throwable()));
      break;
    default:
      break;  // news of the broker's that ask for nothing
  }
  if (wantsAnswer) {
    const std::lock_guard<std::mutex> lock(writeMutex_);
    link_->writeFrame(encodeFrame(response(id), ++commandIds_, false));
  }
}

void ConnectionCore::dispatch(std::string_view body) {
  Delivery delivery = parseDispatch(body);
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto inbox = inboxes_.find(delivery.consumer);
  if (inbox == inboxes_.end() || delivery.message == nullptr) return;
  inbox->second->waiting.push_back(std::move(delivery));
  changed_.notify_all();
}

void ConnectionCore::answered(std::string_view body, bool refused) {
  Reader in(body);
  const std::uint32_t id = in.u32();
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = pending_.find(id);
  if (found == pending_.end()) return;  // given up
  Pending& pending = *found->second;
  if (refused) pending.refusal = in.throwable();
  pending.state = refused ? Pending::kRefused : Pending::kAnswered;
  pending_.erase(found);
  changed_.notify_all();
}

void ConnectionCore::dropLink(const std::string& why) {
  const std::lock_guard<std::mutex> writing(writeMutex_);
  const std::lock_guard<std::mutex> lock(mutex_);
  up_ = false;
  link_.reset();
  lastError_ = why;
  for (const auto& [id, pending] : pending_) pending->state = Pending::kLost;
  pending_.clear();
  // Not acknowledged: the broker delivers them again.
  for (const auto& [id, inbox] : inboxes_) inbox->waiting.clear();
  changed_.notify_all();
}

void ConnectionCore::fail(const std::string& why) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (failure_.empty()) failure_ = why;
  changed_.notify_all();
}

bool ConnectionCore::write(std::string_view frame, std::optional<std::uint64_t> generation) {
  const std::lock_guard<std::mutex> writing(writeMutex_);
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!up_ || (generation && *generation != generation_)) return false;
  }
  try {
    link_->writeFrame(frame);
    return true;
  } catch (const CMSException&) {
    link_->shutdown();  // the I/O thread sees it and takes the link down
    const std::lock_guard<std::mutex> lock(mutex_);
    up_ = false;
    return false;
  }
}

void ConnectionCore::awaitLink(std::unique_lock<std::mutex>& lock, Clock::time_point deadline) {
  changed_.wait_until(lock, deadline, [this] { return up_ || !failure_.empty() || closing_; });
  if (!failure_.empty()) throw CMSException(failure_);
  if (closing_) throw CMSException("the connection is closed");
  if (!up_)
    throw CMSException(lastError_.empty() ? "no link to the broker"
                                          : "no link to the broker: " + lastError_);
}

void ConnectionCore::request(const OutCommand& command, int limitMs) {
  const auto deadline = Clock::now() + milliseconds(limitMs);
  for (;;) {
    const std::uint32_t id = ++commandIds_;
    const auto pending = std::make_shared<Pending>();
    {
      std::unique_lock<std::mutex> lock(mutex_);
      awaitLink(lock, deadline);
      pending_[id] = pending;
    }
    const bool written = write(encodeFrame(command, id, true));
    std::unique_lock<std::mutex> lock(mutex_);
    if (written)
      changed_.wait_until(lock, deadline, [&] {
        return pending->state != Pending::kWaiting || !failure_.empty() || closing_;
      });
    pending_.erase(id);
    if (pending->state == Pending::kAnswered) return;
    if (pending->state == Pending::kRefused) throw CMSException(pending->refusal);
    if (written && pending->state == Pending::kWaiting && !closing_ && failure_.empty())
      throw CMSException("the broker does not answer");
  }
}

void ConnectionCore::send(const OutCommand& command) {
  const auto deadline = Clock::now() + milliseconds(uri_.sendLimit());
  do {
    std::unique_lock<std::mutex> lock(mutex_);
    awaitLink(lock, deadline);
  } while (!write(encodeFrame(command, ++commandIds_, false)));
}

void ConnectionCore::announce(const std::string& id, std::uint64_t session,
                              const OutCommand& info) {
  std::uint64_t number;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    number = ++objectNumbers_;
    objects_[number] = {id, session, info};
  }
  try {
    request(info);
  } catch (...) {
    const std::lock_guard<std::mutex> lock(mutex_);
    objects_.erase(number);
    throw;
  }
}

void ConnectionCore::withdraw(const std::string& id) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto object = std::find_if(objects_.begin(), objects_.end(),
                                     [&id](const auto& entry) { return entry.second.id == id; });
    if (object != objects_.end()) objects_.erase(object);
    if (!up_) return;  // the next link does not learn of it
  }
  try {
    request(removeInfo(id), kCloseLimitMs);
  } catch (const CMSException&) {  // gone with the link, or with its session
  }
}

void ConnectionCore::withdrawSession(std::uint64_t session, const std::string& id) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto object = objects_.begin(); object != objects_.end();) {
      if (object->second.session != session || object->second.id == id) {
        ++object;
        continue;
      }
      const auto inbox = inboxes_.find(object->second.id);
      if (inbox != inboxes_.end()) inbox->second->closed = true;
      object = objects_.erase(object);
    }
    changed_.notify_all();
  }
  withdraw(id);
}

std::shared_ptr<Inbox> ConnectionCore::openInbox(const std::string& consumer) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return inboxes_[consumer] = std::make_shared<Inbox>();
}

void ConnectionCore::closeInbox(const std::string& consumer, const std::shared_ptr<Inbox>& inbox) {
  const std::lock_guard<std::mutex> lock(mutex_);
  inbox->closed = true;
  inboxes_.erase(consumer);
  changed_.notify_all();
}

std::unique_ptr<Message> ConnectionCore::receive(Inbox& inbox, const Clock::time_point* deadline) {
  Delivery delivery;
  std::uint64_t generation;
  {
    std::unique_lock<std::mutex> lock(mutex_);
    const auto ready = [&] {
      return inbox.closed || !failure_.empty() || (delivering_ && !inbox.waiting.empty());
    };
    if (deadline == nullptr) {
      changed_.wait(lock, ready);
    } else if (!changed_.wait_until(lock, *deadline, ready)) {
      return nullptr;
    }
    if (inbox.closed) return nullptr;
    if (!failure_.empty()) throw CMSException(failure_);
    delivery = std::move(inbox.waiting.front());
    inbox.waiting.pop_front();
    generation = generation_;
  }
  // Lost with the link, it is delivered again on the next.
  write(encodeFrame(delivery.acknowledgement, ++commandIds_, false), generation);
  return std::move(delivery.message);
}

void ConnectionCore::setDelivering(bool on) {
  const std::lock_guard<std::mutex> lock(mutex_);
  delivering_ = on;
  changed_.notify_all();
}

}  // namespace cms::openwire
