// One HTTP connection to a device, kept between calls where the device allows it.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

struct axis2_options;

namespace axis2c {

struct Reply {
  long status = 0;
  std::string body;
  // The schemes that were asked for, as the two headers name them; empty when absent.
  std::string httpChallenge, proxyChallenge;
};

class Transport {
 public:
  // An answer has a kilobyte or two. More than this is no answer, and XML of more attributes than
  // fit in here would cost the parser seconds.
  static constexpr std::size_t kLargestReply = 256 * 1024;

  Transport();
  // False when no complete answer came within the options' time limit, with the reason in `why`.
  // `proxy` is "host:port" or empty.
  bool post(const axis2_options& options, const std::string& proxy, const std::string& body,
            Reply& reply, std::string& why);

 private:
  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl_;
};

}  // namespace axis2c
