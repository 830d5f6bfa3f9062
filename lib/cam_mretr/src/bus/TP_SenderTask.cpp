#include "TP_SenderTask.h"

namespace Kelvane {

TP_SenderTask::TP_SenderTask(std::shared_ptr<Messenger> messenger, std::size_t limit)
    : messenger_(std::move(messenger)), limit_(limit), thread_([this] { run(); }) {}

TP_SenderTask::~TP_SenderTask() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

bool TP_SenderTask::put(Message message) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (waiting_.size() >= limit_) return false;
    waiting_.push_back(std::move(message));
  }
  changed_.notify_one();
  return true;
}

std::size_t TP_SenderTask::failures() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return failures_;
}

void TP_SenderTask::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
    if (waiting_.empty()) return;
    const Message message = std::move(waiting_.front());
    waiting_.pop_front();
    lock.unlock();
    bool sent = true;
    try {
      messenger_->send(message, nullptr);
    } catch (const std::exception&) {
      sent = false;
    }
    lock.lock();
    if (!sent) ++failures_;
  }
}

}  // namespace Kelvane
