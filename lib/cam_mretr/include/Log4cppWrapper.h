#pragma once

#include <string>

namespace Kelvane {

// The process's log category. It exists once init() was called; until then
// the module's log lines take their fallback form.
class Log4cppWrapper {
 public:
  // `priority` as in log4cpp::Priority. Lines go to standard error, one write each.
  static void init(int priority);
  static const std::string& category();
};

}  // namespace Kelvane
