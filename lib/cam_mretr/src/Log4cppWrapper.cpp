#include "Log4cppWrapper.h"

#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <log4cpp/Category.hh>
#include <log4cpp/FileAppender.hh>
#include <log4cpp/Layout.hh>
#include <log4cpp/LoggingEvent.hh>

#include "HostLog.h"

namespace Kelvane {

namespace {

// "2026/01/31 12:00:00 ERROR - text", in UTC like the module's fallback form.
class UtcLayout : public log4cpp::Layout {
 public:
  std::string format(const log4cpp::LoggingEvent& event) override {
    const time_t seconds = event.timeStamp.getSeconds();
    tm utc{};
    gmtime_r(&seconds, &utc);
    char stamp[32];
    strftime(stamp, sizeof stamp, "%Y/%m/%d %H:%M:%S ", &utc);
    return stamp + log4cpp::Priority::getPriorityName(event.priority) + " - " + event.message +
           "\n";
  }
};

}  // namespace

void Log4cppWrapper::init(int priority) {
  log4cpp::Category& category = log4cpp::Category::getInstance(Log4cppWrapper::category());
  auto* appender = new log4cpp::FileAppender("stderr", dup(STDERR_FILENO));
  appender->setLayout(new UtcLayout);
  category.setAppender(appender);
  category.setAdditivity(false);
  category.setPriority(priority);
}

const std::string& Log4cppWrapper::category() {
  // Never destroyed: other threads still log while the process exits.
  static const std::string& name = *new std::string("mretriever");
  return name;
}

void hostError(const std::string& text) {
  if (log4cpp::Category* category = log4cpp::Category::exists(Log4cppWrapper::category())) {
    category->error(text);
  } else {
    fprintf(stderr, "ERROR - %s\n", text.c_str());
  }
}

}  // namespace Kelvane
