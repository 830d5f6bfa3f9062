#include "transport.h"

#include <strings.h>

#include <array>

#include "internal.h"

namespace axis2c {

namespace {

std::size_t takeBody(char* data, std::size_t, std::size_t size, void* user) {
  std::string& body = static_cast<Reply*>(user)->body;
  if (body.size() + size > Transport::kLargestReply) return 0;
  body.append(data, size);
  return size;
}

std::size_t takeHeader(char* data, std::size_t, std::size_t size, void* user) {
  auto& reply = *static_cast<Reply*>(user);
  const std::string line(data, size);
  if (line.compare(0, 5, "HTTP/") == 0) {  // a further answer, after a login
    reply.httpChallenge.clear();
    reply.proxyChallenge.clear();
  }
  const auto colon = line.find(':');
  if (colon == std::string::npos) return size;
  const std::string name = line.substr(0, colon);
  const std::string value = line.substr(colon + 1) + ",";
  if (strcasecmp(name.c_str(), "WWW-Authenticate") == 0) reply.httpChallenge += value;
  if (strcasecmp(name.c_str(), "Proxy-Authenticate") == 0) reply.proxyChallenge += value;
  return size;
}

// False for a scheme that is not spoken.
bool schemeOf(const Credentials& credentials, long& scheme) {
  if (strcasecmp(credentials.type.c_str(), "Digest") == 0) {
    scheme = CURLAUTH_DIGEST;
  } else if (credentials.type.empty() || strcasecmp(credentials.type.c_str(), "Basic") == 0) {
    scheme = CURLAUTH_BASIC;
  } else {
    return false;
  }
  return true;
}

void setLogin(CURL* curl, const Credentials& login, bool withheld, long scheme, CURLoption user,
              CURLoption password, CURLoption auth) {
  const bool send = !withheld && !login.user.empty();
  curl_easy_setopt(curl, user, send ? login.user.c_str() : nullptr);
  curl_easy_setopt(curl, password, send ? login.password.c_str() : nullptr);
  curl_easy_setopt(curl, auth, scheme);
}

// Worded after the socket call that failed: that is what callers tell network and device apart by.
std::string describe(CURL* curl, CURLcode code, const axis2_options& options, const char* detail) {
  std::string reason = *detail == '\0' ? curl_easy_strerror(code) : detail;
  long requestBytes = 0;
  curl_easy_getinfo(curl, CURLINFO_REQUEST_SIZE, &requestBytes);
  switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return "gethostbyname() error: " + reason;
    case CURLE_COULDNT_CONNECT:
      return "Unable to connect() to " + options.address + ": " + reason;
    case CURLE_GOT_NOTHING:
      return "Server closed connection without an answer";
    case CURLE_SEND_ERROR:
      return "Failed write into socket: " + reason;
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
      return "Error to read from socket: " + reason;
    case CURLE_OPERATION_TIMEDOUT:
      if (requestBytes > 0) {
        return "Error to read from socket: no answer within " + std::to_string(options.timeoutMs) +
               " ms";
      }
      return "Unable to connect() to " + options.address + " within " +
             std::to_string(options.timeoutMs) + " ms";
    case CURLE_WRITE_ERROR:
      return "Answer of more than " + std::to_string(Transport::kLargestReply) + " bytes";
    default:
      return reason;
  }
}

using Headers = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

Headers makeHeaders(const axis2_options& options) {
  const std::string action = options.soapAction == nullptr
                                 ? options.action
                                 : axutil_string_get_buffer(options.soapAction, nullptr);
  curl_slist* list = curl_slist_append(nullptr, "Content-Type: text/xml; charset=UTF-8");
  list = curl_slist_append(list, ("SOAPAction: \"" + action + "\"").c_str());
  list = curl_slist_append(list, "Expect:");  // old devices wait for the body, and so would curl
  return Headers(list, curl_slist_free_all);
}

}  // namespace

Transport::Transport() : curl_(curl_easy_init(), curl_easy_cleanup) {}

bool Transport::post(const axis2_options& options, const std::string& proxy,
                     const std::string& body, Reply& reply, std::string& why) {
  CURL* curl = curl_.get();
  long httpScheme = 0;
  long proxyScheme = 0;
  if (!schemeOf(options.http, httpScheme) || !schemeOf(options.proxy, proxyScheme)) {
    why = "Only Basic and Digest logins are supported";
    return false;
  }
  const Headers headers = makeHeaders(options);
  std::array<char, CURL_ERROR_SIZE> detail{};
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, detail.data());
  curl_easy_setopt(curl, CURLOPT_URL, options.address.c_str());
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http");
  curl_easy_setopt(curl, CURLOPT_PROXY, proxy.c_str());  // empty: none, whatever the environment
  curl_easy_setopt(curl, CURLOPT_NOPROXY, "");
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, options.timeoutMs);
  curl_easy_setopt(curl, CURLOPT_USERAGENT, "Axis2C/1.6.0");
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, takeBody);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, takeHeader);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &reply);
  setLogin(curl, options.http, options.testHttp, httpScheme, CURLOPT_USERNAME, CURLOPT_PASSWORD,
           CURLOPT_HTTPAUTH);
  setLogin(curl, options.proxy, options.testProxy, proxyScheme, CURLOPT_PROXYUSERNAME,
           CURLOPT_PROXYPASSWORD, CURLOPT_PROXYAUTH);
  const CURLcode code = curl_easy_perform(curl);
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, nullptr);
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
  if (code != CURLE_OK) why = describe(curl, code, options, detail.data());
  // A connection through a proxy belongs to one login; left open it would stand in the way of the
  // next on a device that serves one at a time.
  if (reply.status == 407) curl_.reset(curl_easy_init());
  return code == CURLE_OK;
}

}  // namespace axis2c
