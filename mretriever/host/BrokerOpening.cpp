#include "BrokerOpening.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <set>
#include <thread>

#include "AccessLog.h"
#include "Plugins.h"

namespace host {
namespace {

constexpr std::chrono::seconds kFirstDelay{1}, kLongestDelay{60};

void openBroker(const std::string& uri, Kelvane::Retriever& retriever) {
  const std::string shown = uri.substr(0, uri.find('?'));  // a password may follow
  std::set<std::string> reported;
  for (auto delay = kFirstDelay;; delay = std::min(2 * delay, kLongestDelay)) {
    try {
      retriever.setCMSSession(openBrokerSession(uri));
      LOG_INFO("The broker %s takes positions", shown.c_str());
      return;
    } catch (const std::exception& failure) {
      if (reported.insert(failure.what()).second)
        LOG_ERROR("No session of the broker %s: %s", shown.c_str(), failure.what());
    }
    std::this_thread::sleep_for(delay);
  }
}

}  // namespace

void openBrokerBesideStream(const std::string& uri, Kelvane::Retriever& retriever) {
  // Nothing waits for it: it may be in the midst of an attempt when the process ends.
  std::thread([uri, &retriever] { openBroker(uri, retriever); }).detach();
}

}  // namespace host
