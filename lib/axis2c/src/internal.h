// What the sources of this library share. Nothing of this is seen from outside.
#pragma once

#include <axiom.h>
#include <axis2_client.h>
#include <libxml/tree.h>

#include <memory>
#include <string>

struct axutil_qname {
  std::string local, uri;
};

namespace axis2c {

struct Credentials {
  std::string user, password, type;
};

// A new environment that writes to a log which stays with its owner.
axutil_env_t* newEnv(axutil_log_t* log);
void freeEnvButLog(axutil_env_t* env);

// Sets the error with this text (or the code's own when it is empty), and logs it.
void fail(const axutil_env_t* env, axutil_error_codes_t code, const std::string& text);

inline xmlNode* toXml(axiom_node_t* node) {
  return reinterpret_cast<xmlNode*>(node);
}
inline axiom_node_t* toNode(xmlNode* node) {
  return reinterpret_cast<axiom_node_t*>(node);
}

// The first child element, of that local name unless it is null; null when there is none.
xmlNode* childElement(const xmlNode* parent, const char* localName);

using Document = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;
// Parses what a device sent. A document type ends it at once: SOAP forbids one, and only there
// could entities hide. Depth is bounded by libxml2 at 256 levels, size by the receiver. Null on
// failure, with the reason in `why`.
Document parse(const std::string& text, std::string& why);

// An envelope around the payload, which is consumed and may be null.
std::string envelope(axiom_node_t* payload);

}  // namespace axis2c

struct axis2_endpoint_ref {
  std::string address;
};

struct axis2_options {
  std::string address;
  axutil_string_t* soapAction = nullptr;
  std::string action;
  long timeoutMs = AXIS2_DEFAULT_TIMEOUT_MILLISECONDS;
  axis2c::Credentials http, proxy;
  bool testHttp = false, testProxy = false;
};

namespace axis2c {

// A service with nothing in it but its anonymous operation.
axis2_svc_t* newService(const axutil_env_t* env);
void freeService(axis2_svc_t* svc);

// Options are copied for a call on another thread.
axis2_options_t* copyOptions(const axis2_options_t& options, const axutil_env_t* env);
void freeOptions(axis2_options_t* options);

}  // namespace axis2c
