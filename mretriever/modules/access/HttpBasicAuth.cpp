#include "HttpBasicAuth.h"

#include <Base64.hh>
#include <memory>

namespace Kelvane {

std::string basicAuthorization(const std::string& user, const std::string& password) {
  if (user.empty()) return "";
  const std::string login = user + ":" + password;
  const std::unique_ptr<char[]> encoded(
      base64Encode(login.data(), static_cast<unsigned>(login.size())));
  return std::string("Authorization: Basic ") + encoded.get() + "\r\n";
}

}  // namespace Kelvane
