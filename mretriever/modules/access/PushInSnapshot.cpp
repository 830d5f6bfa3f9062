#include "PushInSnapshot.h"

#include <sys/stat.h>
#include <utime.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <vector>

#include "AccessLog.h"
#include "Cfg.h"
#include "Exceptions.h"
#include "PushInMediaProducerImpl.h"
#include "Retriever.h"

namespace Kelvane {

namespace {

constexpr char kPlaceholder[] = "/opt/orbel/sdi/html/admin/img/noimage/noimage.240x180.jpg";
constexpr std::size_t kCopyBytes = 65536;
constexpr int kPeriodMicros = 1000000;

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

void copyPlaceholder(const std::string& snapshot, const char* placeholder) {
  const File from(fopen(placeholder, "r"), fclose);
  if (!from) {
    const auto reason = last_error_message();
    LOG_ERROR("CRT-0004 Failed to file %s: %s", placeholder, reason->c_str());
    return;
  }
  const File to(fopen(snapshot.c_str(), "w"), fclose);
  if (!to) {
    const auto reason = last_error_message();
    LOG_ERROR("CRT-0005 Failed to file %s: %s", snapshot.c_str(), reason->c_str());
    return;
  }
  // Without buffers a full disk shows in the write and not in a later flush.
  setvbuf(from.get(), nullptr, _IONBF, 0);
  setvbuf(to.get(), nullptr, _IONBF, 0);
  std::vector<char> picture(kCopyBytes);
  errno = 0;
  const std::size_t got = fread(picture.data(), 1, picture.size(), from.get());
  if (got == 0) {
    const auto reason = last_error_message();
    LOG_ERROR("CRT-0006 Failed to read from file %s: %s", placeholder, reason->c_str());
    return;
  }
  if (fwrite(picture.data(), 1, got, to.get()) == 0) {
    const auto reason = last_error_message();
    LOG_ERROR("CRT-0007 Failed to write to file %s: %s", snapshot.c_str(), reason->c_str());
  }
}

}  // namespace

void refreshSnapshot(const std::string& snapshot, const char* placeholder) {
  struct stat found {};
  if (stat(snapshot.c_str(), &found) != 0) {
    copyPlaceholder(snapshot, placeholder);
  } else if (utime(snapshot.c_str(), nullptr) != 0) {
    const auto reason = last_error_message();
    LOG_ERROR("CRT-0003 Cannot update snapshot file %s: %s", snapshot.c_str(), reason->c_str());
  }
}

void PushInMediaProducerImpl::updateSnapshot(void* producer) {
  refreshSnapshot("/tmp/" + Cfg::value("DEVID") + ".jpg", kPlaceholder);
  Retriever::instance(nullptr, nullptr, nullptr, nullptr)->updatePid(false, false);
  static_cast<PushInMediaProducerImpl*>(producer)->scheduleSnapshot(kPeriodMicros);
}

}  // namespace Kelvane
