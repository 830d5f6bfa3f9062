#include "HttpLogin.h"

#include <Base64.hh>
#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <ourMD5.hh>
#include <random>

namespace {

std::string newNonce() {
  std::random_device random;
  char text[33];
  snprintf(text, sizeof text, "%08x%08x%08x%08x", random(), random(), random(), random());
  return text;
}

std::string md5(const std::string& text) {
  char digest[33];
  our_MD5Data(reinterpret_cast<const unsigned char*>(text.data()),
              static_cast<unsigned>(text.size()), digest);
  return digest;
}

// name="value" and name=value, comma-separated; values hold no quotes.
std::map<std::string, std::string> parameters(const std::string& list) {
  std::map<std::string, std::string> found;
  std::size_t at = 0;
  while ((at = list.find_first_not_of(", ", at)) != std::string::npos) {
    const std::size_t equals = list.find('=', at);
    if (equals == std::string::npos) break;
    const std::string name = list.substr(at, equals - at);
    const bool quoted = list.compare(equals + 1, 1, "\"") == 0;
    const std::size_t begin = equals + (quoted ? 2 : 1);
    const std::size_t end = std::min(list.find(quoted ? '"' : ',', begin), list.size());
    found[name] = list.substr(begin, end - begin);
    at = end + (quoted ? 1 : 0);
  }
  return found;
}

}  // namespace

std::string requestHeader(const std::string& request, const std::string& name) {
  const std::string key = "\r\n" + name + ": ";
  const std::size_t at = request.find(key);
  if (at == std::string::npos) return "";
  const std::size_t begin = at + key.size();
  return request.substr(begin, request.find("\r\n", begin) - begin);
}

HttpLogin::HttpLogin(LoginOptions options) : options_(std::move(options)), nonce_(newNonce()) {}

bool HttpLogin::accepts(const std::string& request) {
  if (options_.scheme == "none") return true;
  const std::string header = requestHeader(request, "Authorization");
  if (options_.scheme == "digest") return acceptsDigest(request, header);
  const std::string login = options_.user + ":" + options_.password;
  const std::unique_ptr<char[]> encoded(
      base64Encode(login.data(), static_cast<unsigned>(login.size())));
  return header == std::string("Basic ") + encoded.get();
}

bool HttpLogin::acceptsDigest(const std::string& request, const std::string& header) {
  if (header.rfind("Digest ", 0) != 0) return false;
  auto given = parameters(header.substr(7));
  const std::string method = request.substr(0, request.find(' '));
  const std::size_t at = method.size() + 1;
  const std::string target = request.substr(at, request.find(' ', at) - at);
  const std::lock_guard<std::mutex> held(mutex_);
  if (given["username"] != options_.user || given["realm"] != options_.realm ||
      given["nonce"] != nonce_ || given["uri"] != target || given["opaque"] != options_.opaque) {
    return false;
  }
  std::string secret = md5(options_.user + ":" + options_.realm + ":" + options_.password);
  if (options_.algorithm == "MD5-sess") {
    secret = md5(secret + ":" + nonce_ + ":" + given["cnonce"]);
  }
  std::string proof = secret + ":" + nonce_ + ":";
  if (!options_.qop.empty()) {
    if (given["qop"] != "auth" || given["cnonce"].empty() || given["nc"] != "00000001") {
      return false;
    }
    proof += given["nc"] + ":" + given["cnonce"] + ":auth:";
  }
  if (given["response"] != md5(proof + md5(method + ":" + target))) return false;
  if (options_.nonceUses > 0 && ++uses_ >= options_.nonceUses) {
    nonce_ = newNonce();
    uses_ = 0;
  }
  return true;
}

std::string HttpLogin::challenge() {
  if (options_.scheme == "basic") {
    return "WWW-Authenticate: Basic realm=\"" + options_.realm + "\"\r\n";
  }
  const std::lock_guard<std::mutex> held(mutex_);
  std::string line =
      "WWW-Authenticate: Digest realm=\"" + options_.realm + "\", nonce=\"" + nonce_ + "\"";
  if (!options_.qop.empty()) line += ", qop=\"" + options_.qop + "\"";
  if (!options_.opaque.empty()) line += ", opaque=\"" + options_.opaque + "\"";
  if (!options_.algorithm.empty()) line += ", algorithm=" + options_.algorithm;
  return line + "\r\n";
}
