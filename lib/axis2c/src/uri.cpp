#include <axutil_uri.h>

#include <charconv>
#include <string>

#include "internal.h"

struct axutil_uri {
  std::string text, scheme, user, host, path;
  unsigned short port = 0;
};

namespace {

// "host:port", also "[::1]:port". False when the port is no number of 16 bits.
bool splitAuthority(const std::string& authority, axutil_uri& uri) {
  const auto bracket = authority.find(']');
  const auto colon = authority.find(':', bracket == std::string::npos ? 0 : bracket);
  uri.host = authority.substr(0, colon);
  if (colon == std::string::npos || colon + 1 == authority.size()) return true;
  const char* end = authority.data() + authority.size();
  const auto [stop, code] = std::from_chars(authority.data() + colon + 1, end, uri.port);
  return code == std::errc() && stop == end;
}

bool parse(axutil_uri& uri) {
  const auto colon = uri.text.find(':');
  const auto special = uri.text.find_first_of("/?#");
  std::size_t at = 0;
  if (colon != std::string::npos && colon > 0 && colon < special) {
    uri.scheme = uri.text.substr(0, colon);
    at = colon + 1;
  }
  if (uri.text.compare(at, 2, "//") == 0) {
    const auto end = std::min(uri.text.find_first_of("/?#", at + 2), uri.text.size());
    std::string authority = uri.text.substr(at + 2, end - at - 2);
    const auto user = authority.rfind('@');
    if (user != std::string::npos) {
      uri.user = authority.substr(0, user + 1);
      authority.erase(0, user + 1);
    }
    if (!splitAuthority(authority, uri)) return false;
    at = end;
  }
  uri.path = uri.text.substr(at, uri.text.find_first_of("?#", at) - at);
  return true;
}

char* orNull(std::string& part) {
  return part.empty() ? nullptr : part.data();
}

}  // namespace

axutil_uri_t* axutil_uri_parse_string(const axutil_env_t* env, const axis2_char_t* uri) {
  if (uri == nullptr) {
    AXIS2_ERROR_SET(env->error, AXIS2_ERROR_INVALID_NULL_PARAM, AXIS2_FAILURE);
    return nullptr;
  }
  auto parsed = std::make_unique<axutil_uri>();
  parsed->text = uri;
  if (!parse(*parsed)) {
    axis2c::fail(env, AXIS2_ERROR_INVALID_ADDRESS, "Invalid port in the URI " + parsed->text);
    return nullptr;
  }
  return parsed.release();
}

void axutil_uri_free(axutil_uri_t* uri, const axutil_env_t*) {
  delete uri;
}

axis2_char_t* axutil_uri_to_string(const axutil_uri_t* uri, const axutil_env_t* env,
                                   unsigned flags) {
  std::string text = uri->text;
  if ((flags & AXIS2_URI_UNP_OMITUSERINFO) != 0 && !uri->user.empty()) {
    text.erase(text.find(uri->user), uri->user.size());
  }
  return static_cast<char*>(axutil_strdup(env, text.c_str()));
}

axis2_char_t* axutil_uri_get_protocol(axutil_uri_t* uri, const axutil_env_t*) {
  return orNull(uri->scheme);
}
axis2_char_t* axutil_uri_get_host(axutil_uri_t* uri, const axutil_env_t*) {
  return orNull(uri->host);
}
axis2_port_t axutil_uri_get_port(axutil_uri_t* uri, const axutil_env_t*) {
  return uri->port;
}
axis2_char_t* axutil_uri_get_path(axutil_uri_t* uri, const axutil_env_t*) {
  return orNull(uri->path);
}
