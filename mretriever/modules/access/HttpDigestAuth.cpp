#include "HttpDigestAuth.h"

#include <strings.h>

#include <cctype>
#include <cstdio>
#include <ourMD5.hh>
#include <random>

namespace Kelvane {

namespace {

constexpr char kNonceCount[] = "00000001";  // each nonce is used for one request

std::string md5(const std::string& text) {
  char digest[33];
  our_MD5Data(reinterpret_cast<const unsigned char*>(text.data()),
              static_cast<unsigned>(text.size()), digest);
  return digest;
}

bool sameWord(const std::string& a, const char* b) {
  return strcasecmp(a.c_str(), b) == 0;
}

bool isSeparator(char c) {
  return c == ',' || isspace(static_cast<unsigned char>(c)) != 0;
}

// Walks over name=value pairs that blanks and commas separate.
class Parameters {
 public:
  explicit Parameters(const std::string& text) : text_(text) {}

  bool next(std::string& name, std::string& value) {
    while (at_ < text_.size() && isSeparator(text_[at_])) ++at_;
    const std::size_t equals = text_.find('=', at_);
    if (equals == std::string::npos) return false;
    name = text_.substr(at_, equals - at_);
    at_ = equals + 1;
    value = at_ < text_.size() && text_[at_] == '"' ? quoted() : bare();
    return true;
  }

 private:
  // An unfinished text ends with the line.
  std::string quoted() {
    std::string value;
    for (++at_; at_ < text_.size() && text_[at_] != '"'; ++at_) {
      if (text_[at_] == '\\' && at_ + 1 < text_.size()) ++at_;
      value.push_back(text_[at_]);
    }
    if (at_ < text_.size()) ++at_;
    return value;
  }
  std::string bare() {
    const std::size_t begin = at_;
    while (at_ < text_.size() && !isSeparator(text_[at_])) ++at_;
    return text_.substr(begin, at_ - begin);
  }

  const std::string& text_;
  std::size_t at_ = 0;
};

// The list of a challenge: "auth", "auth,auth-int".
bool offersAuth(const std::string& list) {
  std::string word;
  for (const char c : list + ",") {
    if (!isSeparator(c)) {
      word.push_back(c);
      continue;
    }
    if (word == "auth") return true;
    word.clear();
  }
  return false;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const int lower = tolower(static_cast<unsigned char>(c));
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::string percentDecoded(const std::string& text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '%' && i + 2 < text.size() ? hexDigit(text[i + 1]) : -1;
    const int low = high >= 0 ? hexDigit(text[i + 2]) : -1;
    if (low < 0) {
      decoded.push_back(text[i]);
      continue;
    }
    decoded.push_back(static_cast<char>(high * 16 + low));
    i += 2;
  }
  return decoded;
}

}  // namespace

std::optional<DigestChallenge> parseDigestChallenge(const std::string& value) {
  constexpr char kScheme[] = "Digest ";
  constexpr std::size_t kSchemeSize = sizeof kScheme - 1;
  if (strncasecmp(value.c_str(), kScheme, kSchemeSize) != 0) return std::nullopt;

  DigestChallenge challenge;
  const std::string list = value.substr(kSchemeSize);
  Parameters parameters(list);
  std::string name;
  std::string text;
  while (parameters.next(name, text)) {
    if (sameWord(name, "realm")) challenge.realm = text;
    if (sameWord(name, "nonce")) challenge.nonce = text;
    if (sameWord(name, "algorithm")) challenge.algorithm = text;
    if (sameWord(name, "opaque")) challenge.opaque = text;
    if (sameWord(name, "qop")) challenge.qop = offersAuth(text) ? "auth" : "";
  }
  return challenge;
}

std::optional<std::string> digestAuthHeader(const DigestChallenge& challenge,
                                            const std::string& login, const std::string& path,
                                            const std::string& method, const std::string& cnonce) {
  const std::string decoded = percentDecoded(login);
  const std::size_t colon = decoded.find(':');
  if (colon == std::string::npos) return std::nullopt;
  const std::string user = decoded.substr(0, colon);

  std::string secret = md5(user + ":" + challenge.realm + ":" + decoded.substr(colon + 1));
  if (sameWord(challenge.algorithm, "MD5-sess")) {
    secret = md5(secret + ":" + challenge.nonce + ":" + cnonce);
  } else if (!challenge.algorithm.empty() && !sameWord(challenge.algorithm, "MD5")) {
    return std::nullopt;
  }
  const bool withQop = !challenge.qop.empty();
  std::string proof = secret + ":" + challenge.nonce + ":";
  if (withQop) proof += std::string(kNonceCount) + ":" + cnonce + ":" + challenge.qop + ":";

  std::string header = "Authorization: Digest username=\"" + user + "\", realm=\"" +
                       challenge.realm + "\", nonce=\"" + challenge.nonce + "\", uri=\"" + path +
                       "\", response=\"" + md5(proof + md5(method + ":" + path)) + "\"";
  // Quoted against the letter of the standard, as everybody does.
  if (!challenge.algorithm.empty()) header += ", algorithm=\"" + challenge.algorithm + "\"";
  if (!challenge.opaque.empty()) header += ", opaque=\"" + challenge.opaque + "\"";
  if (withQop) {
    header += ", qop=\"" + challenge.qop + "\", cnonce=\"" + cnonce + "\", nc=" + kNonceCount;
  }
  return header + "\r\n";
}

std::string newClientNonce() {
  std::random_device random;
  char text[17];
  snprintf(text, sizeof text, "%08x%08x", random(), random());
  return text;
}

}  // namespace Kelvane
