#include "HttpDigestAuth.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kelvane;
using testing::HasSubstr;
using testing::Not;

namespace {

// The worked examples of RFC 2069 (with its published correction) and RFC 2617,
// and answers worked out with md5sum.
struct Vector {
  const char* challenge;
  const char* login;
  const char* path;
  const char* cnonce;
  const char* response;
};

constexpr Vector kVectors[] = {
    {"Digest realm=\"testrealm@host.com\", nonce=\"dcd98b7102dd2f0e8b11d0f600bfb0c093\", "
     "opaque=\"5ccc069c403ebaf9f0171e9517f40e41\"\r\n",
     "Mufasa:CircleOfLife", "/dir/index.html", "", "1949323746fe6a43ef61f9606e7febea"},
    {"Digest realm=\"testrealm@host.com\", qop=\"auth,auth-int\", "
     "nonce=\"dcd98b7102dd2f0e8b11d0f600bfb0c093\", opaque=\"5ccc069c403ebaf9f0171e9517f40e41\"",
     "Mufasa:Circle Of Life", "/dir/index.html", "0a4f113b", "6629fae49393a05397450978507c4ef1"},
    // The same login in escapes; the list without blanks and quotes.
    {"digest qop=auth,realm=\"testrealm@host.com\",nonce=dcd98b7102dd2f0e8b11d0f600bfb0c093",
     "Mufas%61:Circle%20Of%20Life", "/dir/index.html", "0a4f113b",
     "6629fae49393a05397450978507c4ef1"},
};

std::string answer(const Vector& vector) {
  const auto challenge = parseDigestChallenge(vector.challenge);
  if (!challenge) return "no challenge";
  return digestAuthHeader(*challenge, vector.login, vector.path, "GET", vector.cnonce)
      .value_or("no answer");
}

}  // namespace

TEST(HttpDigestAuth, AnswersThePublishedExamples) {
  for (const Vector& vector : kVectors) {
    EXPECT_THAT(answer(vector), HasSubstr("response=\"" + std::string(vector.response) + "\""))
        << vector.challenge;
  }
}

TEST(HttpDigestAuth, TheWholeHeaderHasItsPartsInOrder) {
  EXPECT_EQ(answer(kVectors[1]),
            "Authorization: Digest username=\"Mufasa\", realm=\"testrealm@host.com\", "
            "nonce=\"dcd98b7102dd2f0e8b11d0f600bfb0c093\", uri=\"/dir/index.html\", "
            "response=\"6629fae49393a05397450978507c4ef1\", "
            "opaque=\"5ccc069c403ebaf9f0171e9517f40e41\", qop=\"auth\", cnonce=\"0a4f113b\", "
            "nc=00000001\r\n");
  EXPECT_THAT(answer(kVectors[0]), Not(HasSubstr("nc=")));
}

TEST(HttpDigestAuth, AlgorithmsAndBrokenChallenges) {
  const auto with = [](const std::string& challenge) {
    return answer({challenge.c_str(), "u:p", "/", "c", ""});
  };
  EXPECT_THAT(with("Digest realm=\"r\", nonce=\"n\", algorithm=MD5"),
              HasSubstr(", algorithm=\"MD5\"\r\n"));
  // md5(md5(md5("u:r:p"):n:c):n:md5("GET:/"))
  EXPECT_THAT(with("Digest realm=\"r\", nonce=\"n\", algorithm=MD5-sess"),
              HasSubstr("response=\"254644af15666e40df975c5ae58b9796\""));
  EXPECT_EQ(with("Digest realm=\"r\", nonce=\"n\", algorithm=SHA-256"), "no answer");
  EXPECT_EQ(with("Digest"), "no challenge");
  EXPECT_EQ(with("Basic realm=\"r\""), "no challenge");
  // Only auth-int: answered as if no qop was offered.
  EXPECT_THAT(with("Digest realm=\"r\", nonce=\"n\", qop=\"auth-int\""), Not(HasSubstr("qop")));
  // Escapes are undone; a text without its end ends with the line.
  EXPECT_THAT(with("Digest nonce=\"n\", realm=\"a\\\\b"), HasSubstr("realm=\"a\\b\""));
  EXPECT_THAT(with("Digest realm=\"ends in \\"), HasSubstr("realm=\"ends in \\\""));
  EXPECT_THAT(with("Digest ,, =, x realm"), HasSubstr("realm=\"\""));
}
