#pragma once

#include <mutex>
#include <string>

// The login that a simulated HTTP camera asks for, really verified.
struct LoginOptions {
  std::string scheme = "none";  // none, basic, digest
  std::string user = "admin";
  std::string password = "secret";
  std::string realm = "camsim";
  std::string qop;        // "auth", "auth,auth-int"; empty: none is offered
  std::string opaque;     // left out when empty
  std::string algorithm;  // left out when empty
  int nonceUses = 0;      // a nonce is stale after so many requests; 0: never
};

// Safe from several threads.
class HttpLogin {
 public:
  explicit HttpLogin(LoginOptions options);
  // Whether this request (request line and headers) may pass.
  bool accepts(const std::string& request);
  // The header line for a 401, line ending included.
  std::string challenge();

 private:
  bool acceptsDigest(const std::string& request, const std::string& header);

  const LoginOptions options_;
  std::mutex mutex_;
  std::string nonce_;
  int uses_ = 0;
};

// A header's value in a request, empty when it is absent.
std::string requestHeader(const std::string& request, const std::string& name);
