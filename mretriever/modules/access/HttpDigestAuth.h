#pragma once

#include <optional>
#include <string>

namespace Kelvane {

// HTTP Digest authentication for one request: MD5 and MD5-sess, without qop
// and with qop=auth. Pure; the caller sends and receives.

// What a server asks for, quotes and backslashes undone.
struct DigestChallenge {
  std::string realm;
  std::string nonce;
  std::string algorithm;  // empty means MD5
  std::string qop;        // "auth" or empty: a list without auth is answered without qop
  std::string opaque;
};

// `value` is the header's value, "Digest realm=...". Nothing when it is no
// Digest challenge. Parameters that are missing stay empty.
std::optional<DigestChallenge> parseDigestChallenge(const std::string& value);

// The whole header line, line ending included, for the first request with this
// nonce. `login` is "user:password", where %XX stands for a byte. Nothing for
// an algorithm that is not known.
std::optional<std::string> digestAuthHeader(const DigestChallenge& challenge,
                                            const std::string& login, const std::string& path,
                                            const std::string& method, const std::string& cnonce);

// 16 random hexadecimal digits.
std::string newClientNonce();

}  // namespace Kelvane
