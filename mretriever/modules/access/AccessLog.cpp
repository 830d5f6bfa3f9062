#include "AccessLog.h"

#include <sys/time.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <log4cpp/Category.hh>
#include <string>

#include "Cfg.h"
#include "Log4cppWrapper.h"

namespace Kelvane {

namespace {

log4cpp::Category* category() {
  return log4cpp::Category::exists(Log4cppWrapper::category());
}

std::string deviceId() {
  return Cfg::exist("DEVID") ? Cfg::value("DEVID") : std::string();
}

std::string formatted(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = vsnprintf(nullptr, 0, format, again);
  va_end(again);
  if (length < 0) return format;
  std::string text(static_cast<std::size_t>(length), '\0');
  vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

const char* levelName(int level) {
  if (level <= log4cpp::Priority::ERROR) return "ERROR";
  if (level <= log4cpp::Priority::WARN) return "WARN";
  if (level <= log4cpp::Priority::INFO) return "INFO";
  return "DEBUG";
}

void writeFallback(int level, const char* file, int line, const std::string& text) {
  timeval now{};
  gettimeofday(&now, nullptr);
  tm utc{};
  gmtime_r(&now.tv_sec, &utc);
  char stamp[256];
  strftime(stamp, sizeof stamp, "%Y/%m/%d %H:%M:%S", &utc);
  fprintf(stderr, "%s %s - %s %d %s\n", stamp, levelName(level), file, line, text.c_str());
}

void writeLogged(log4cpp::Category& to, int level, const char* file, int line,
                 const std::string& text) {
  const std::string message =
      "[" + deviceId() + "] " + file + " " + std::to_string(line) + " " + text;
  to.log(level, message);
}

}  // namespace

bool logEnabled(int level) {
  const log4cpp::Category* to = category();
  return to == nullptr || to->isPriorityEnabled(level);
}

void logWrite(int level, const char* file, int line, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = formatted(format, arguments);
  va_end(arguments);
  if (log4cpp::Category* to = category()) {
    writeLogged(*to, level, file, line, text);
  } else {
    writeFallback(level, file, line, text);
  }
}

void logFatal(FatalForm form, const char* file, int line, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = formatted(format, arguments);
  va_end(arguments);
  if (log4cpp::Category* to = category()) {
    writeLogged(*to, log4cpp::Priority::FATAL, file, line, text);
  } else if (form == FatalForm::plain) {
    fprintf(stderr, "FATAL ERROR: %s %d \n%s\n", file, line, text.c_str());
  } else {
    fprintf(stderr, "FATAL ERROR: [%s] %s %d %s\n", deviceId().c_str(), file, line, text.c_str());
  }
}

}  // namespace Kelvane
