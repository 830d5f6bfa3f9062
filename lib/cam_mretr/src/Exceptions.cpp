#include "Exceptions.h"

#include <cerrno>
#include <system_error>

namespace Kelvane {

std::shared_ptr<std::string> last_error_message() {
  const int error = errno;
  return std::make_shared<std::string>(std::generic_category().message(error));
}

}  // namespace Kelvane
