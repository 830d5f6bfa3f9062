#pragma once

#include <string>

// What a Pelco camera answers, as bytes of its own.
namespace pelco {

// The text of the first element of that local name, whatever its prefix.
std::string textOf(const std::string& document, const std::string& localName);
// The name of the operation that an envelope asks for; empty for an empty body.
std::string operationOf(const std::string& envelope);

struct Session {
  int id = 0;
  std::string transport;  // "rtp://host:port"
  int refreshInterval = 0;
};

std::string envelope(const std::string& body);
std::string fault(int code, const std::string& description);
// The answer's body, or empty for an operation that no service has. `sessions` is the number open.
std::string answer(const std::string& operation, const Session& session, int sessions,
                   bool streams);
// "malformed", "entities", "deep", "flood": what no camera should answer.
std::string hostile(const std::string& kind);

}  // namespace pelco
