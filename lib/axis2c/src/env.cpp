#include <axutil_env.h>
#include <curl/curl.h>
#include <fcntl.h>
#include <libxml/parser.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>

#include "internal.h"

// One line is one write(2) on a descriptor opened for appending, so lines of
// many processes that share the file stay whole.
struct axutil_log {
  int fd;
  axutil_log_levels_t level;
  bool owned;
};

namespace {

constexpr off_t kLargestLog = 32 * 1024 * 1024;

constexpr std::array<const char*, AXIS2_ERROR_LAST> kTexts = {
    "No Error",
    "Out of memory",
    "NULL parameter was passed when a non NULL parameter was expected",
    "Index out of bounds",
    "Invalid address",
    "The operation is not known to the service",
    "Data element of the record is NULL",
    "Error occurred in transport",
    "XML could not be written",
    "XML could not be parsed",
    "Invalid SOAP envelope",
    "SOAP fault",
};

void* allocate(axutil_allocator_t*, std::size_t size) {
  return std::malloc(size);
}
void* reallocate(axutil_allocator_t*, void* ptr, std::size_t size) {
  return std::realloc(ptr, size);
}
void release(axutil_allocator_t*, void* ptr) {
  std::free(ptr);
}
axutil_allocator_t allocator = {allocate, reallocate, release};

int openLog(const char* name) {
  if (name == nullptr) return -1;
  struct stat info;
  if (lstat(name, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > kLargestLog) {
    std::rename(name, (std::string(name) + ".old").c_str());
  }
  // The usual place is a folder that everybody may write to: follow no link there.
  return open(name, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
}

void writeLine(axutil_log_t* log, axutil_log_levels_t level, const char* levelName,
               const char* where, const char* format, va_list args) {
  if (log == nullptr || level > log->level) return;
  std::array<char, 2048> line;
  std::array<char, 32> date{};
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  int used =
      std::snprintf(line.data(), line.size() - 1, "[%s] [%s] %s", date.data(), levelName, where);
  const auto room = line.size() - 1 - static_cast<std::size_t>(used);
  const int more = std::vsnprintf(line.data() + used, room, format, args);
  used += more < 0 ? 0 : std::min(more, static_cast<int>(room) - 1);
  line[static_cast<std::size_t>(used++)] = '\n';
  // There is nowhere to tell that a log line could not be written.
  if (write(log->fd, line.data(), static_cast<std::size_t>(used)) < 0) return;
}

std::string place(const char* file, int line) {
  const std::string path = file == nullptr ? "" : file;
  return path.substr(path.rfind('/') + 1) + "(" + std::to_string(line) + ") ";
}

}  // namespace

axutil_env_t* axis2c::newEnv(axutil_log_t* log) {
  auto error = std::make_unique<axutil_error_t>();
  error->allocator = &allocator;
  error->status_code = AXIS2_SUCCESS;
  return new axutil_env_t{&allocator, error.release(), log, AXIS2_TRUE};
}

void axis2c::freeEnvButLog(axutil_env_t* env) {
  std::free(env->error->message);
  delete env->error;
  delete env;
}

void axis2c::fail(const axutil_env_t* env, axutil_error_codes_t code, const std::string& text) {
  AXIS2_ERROR_SET(env->error, code, AXIS2_FAILURE);
  if (!text.empty()) axutil_error_set_error_message(env->error, const_cast<char*>(text.c_str()));
  AXIS2_LOG_ERROR(env->log, AXIS2_LOG_SI, "%s", axutil_error_get_message(env->error));
}

axutil_env_t* axutil_env_create_all(const axis2_char_t* log_file,
                                    const axutil_log_levels_t log_level) {
  static std::once_flag once;
  std::call_once(once, [] {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    xmlInitParser();
  });
  const int fd = openLog(log_file);
  return axis2c::newEnv(new axutil_log{fd < 0 ? STDERR_FILENO : fd, log_level, fd >= 0});
}

void axutil_env_free(axutil_env_t* env) {
  if (env == nullptr) return;
  if (env->log->owned) close(env->log->fd);
  delete env->log;
  axis2c::freeEnvButLog(env);
}

const axis2_char_t* axutil_error_get_message(const axutil_error_t* error) {
  if (error == nullptr) return "No Error";
  if (error->message != nullptr) return error->message;
  const auto number = static_cast<std::size_t>(error->error_number);
  return number < kTexts.size() ? kTexts[number] : "Unknown error";
}

axis2_status_t axutil_error_set_error_number(axutil_error_t* error, axutil_error_codes_t number) {
  error->error_number = number;
  std::free(error->message);
  error->message = nullptr;
  return AXIS2_SUCCESS;
}

axis2_status_t axutil_error_set_status_code(axutil_error_t* error, axis2_status_codes_t status) {
  error->status_code = status;
  return AXIS2_SUCCESS;
}

axis2_status_t axutil_error_get_status_code(axutil_error_t* error) {
  return error->status_code;
}

axis2_status_t axutil_error_set_error_message(axutil_error_t* error, axis2_char_t* message) {
  char* copy = message == nullptr ? nullptr : strdup(message);
  std::free(error->message);
  error->message = copy;
  return AXIS2_SUCCESS;
}

void axutil_log_impl_log_error(axutil_log_t* log, const axis2_char_t* file, int line,
                               const axis2_char_t* format, ...) {
  va_list args;
  va_start(args, format);
  writeLine(log, AXIS2_LOG_LEVEL_ERROR, "error", place(file, line).c_str(), format, args);
  va_end(args);
}

void axutil_log_impl_log_warning(axutil_log_t* log, const axis2_char_t* file, int line,
                                 const axis2_char_t* format, ...) {
  va_list args;
  va_start(args, format);
  writeLine(log, AXIS2_LOG_LEVEL_WARNING, "warning", place(file, line).c_str(), format, args);
  va_end(args);
}

void axutil_log_impl_log_info(axutil_log_t* log, const axis2_char_t* format, ...) {
  va_list args;
  va_start(args, format);
  writeLine(log, AXIS2_LOG_LEVEL_INFO, "info", "", format, args);
  va_end(args);
}
