#include "MessagesProcessor.h"

namespace Kelvane {

MessagesProcessor::MessagesProcessor(std::shared_ptr<Messenger> messenger)
    : messenger_(std::move(messenger)) {}

MessagesProcessor::~MessagesProcessor() {
  stop();
}

void MessagesProcessor::start() {
  thread_ = std::thread([this] { run(); });
}

void MessagesProcessor::stop() {
  messenger_->stop();
  if (thread_.joinable()) thread_.join();
}

void MessagesProcessor::run() {
  for (;;) {
    try {
      Message message;
      if (!messenger_->recv(&message, nullptr)) return;
      processMessage(message);
    } catch (const std::exception& failure) {
      processFailure(failure);
    }
  }
}

}  // namespace Kelvane
