#pragma once

#include <string>
#include <string_view>

namespace cms::openwire {

// Java's form of UTF-8 on the wire: NUL takes two bytes, and a character
// outside the basic plane is a pair of surrogates of three bytes each. What is
// malformed comes out as U+FFFD, in both directions.
std::string toModifiedUtf8(std::string_view utf8);
std::string fromModifiedUtf8(std::string_view modified);

}  // namespace cms::openwire
