#include <axis2_client.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <fstream>
#include <future>
#include <sstream>
#include <vector>

#include "internal.h"
#include "transport.h"

using axis2c::Document;
using axis2c::fail;
using axis2c::Reply;

struct axis2_callback {
  axis2_on_complete_func_ptr complete = nullptr;
  axis2_on_error_func_ptr error = nullptr;
  void* data = nullptr;
  xmlNode* envelope = nullptr;
};

struct axis2_svc_client {
  axis2_options_t* options;
  axis2_svc_t* svc;
  std::string proxy;  // "host:port", or empty
  axis2c::Transport transport{};
  Document answer{nullptr, xmlFreeDoc};
  long status = 0;  // of the last blocking call
  std::string authType{};
  std::vector<std::future<void>> calls{};  // on threads of their own
};

struct axis2_stub {
  axis2_svc_client_t* client;
};

namespace {

// One line of printable text, short enough for a log line.
std::string oneLine(const std::string& text) {
  constexpr std::size_t kLongest = 160;
  std::string line;
  for (const char c : text) {
    const bool blank = std::isspace(static_cast<unsigned char>(c)) != 0 ||
                       std::iscntrl(static_cast<unsigned char>(c)) != 0;
    if (!blank) {
      line += c;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
    if (line.size() == kLongest) return line + "...";
  }
  return line.substr(0, line.find_last_not_of(' ') + 1);
}

// All text below the node, the pieces apart. The parser bounds the depth.
void collectText(const xmlNode* node, std::string& text) {
  for (const xmlNode* child = node->children; child != nullptr; child = child->next) {
    if (child->type == XML_ELEMENT_NODE) {
      collectText(child, text);
    } else if (child->content != nullptr && child->type != XML_COMMENT_NODE) {
      text += ' ';
      text += reinterpret_cast<const char*>(child->content);
    }
  }
}

std::string contentOf(const xmlNode* node) {
  std::string text;
  if (node != nullptr) collectText(node, text);
  return oneLine(text);
}

std::string describeFault(const xmlNode* fault) {
  const xmlNode* code = axis2c::childElement(fault, "faultcode");
  if (code == nullptr) return "SOAP fault: " + contentOf(fault);
  std::string text = "SOAP fault " + contentOf(code) + ": " +
                     contentOf(axis2c::childElement(fault, "faultstring"));
  const std::string detail = contentOf(axis2c::childElement(fault, "detail"));
  if (!detail.empty()) text += " (" + detail + ")";
  return text;
}

bool succeeded(long status) {
  return status >= 200 && status < 300;
}

std::string describeStatus(long status) {
  const bool login = status == 401 || status == 407;
  return "HTTP status " + std::to_string(status) + (login ? ": login refused" : "");
}

// The envelope of an answer that is no fault. Otherwise null, with the error set.
Document openReply(const axutil_env_t* env, const Reply& reply) {
  std::string why;
  Document document = axis2c::parse(reply.body, why);
  const Document nothing(nullptr, xmlFreeDoc);
  const xmlNode* root = document ? xmlDocGetRootElement(document.get()) : nullptr;
  const xmlNode* body = axis2c::childElement(root, "Body");
  const xmlNode* fault = axis2c::childElement(body, "Fault");
  if (fault != nullptr) {
    fail(env, AXIS2_ERROR_SOAP_FAULT_ELEMENT_NULL, describeFault(fault));
  } else if (!succeeded(reply.status)) {
    fail(env, AXIS2_ERROR_HTTP_CLIENT_TRANSPORT_ERROR, describeStatus(reply.status));
  } else if (!document) {
    fail(env, AXIS2_ERROR_XML_PARSER_INVALID_MEM_TYPE, why);
  } else if (body == nullptr ||
             std::string(reinterpret_cast<const char*>(root->name)) != "Envelope") {
    fail(env, AXIS2_ERROR_INVALID_SOAP_ENVELOPE_STATE, "Answer is not a SOAP envelope with a body");
  } else {
    return document;
  }
  return Document(nullptr, xmlFreeDoc);
}

// "Digest" or "Basic" when offered, else the first word; empty when nothing is asked for.
std::string schemeIn(const std::string& challenge) {
  std::string plain;  // lower case, without what stands in quotes
  bool quoted = false;
  for (const char c : challenge) {
    if (c == '"') quoted = !quoted;
    if (!quoted) plain += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  if (plain.find("digest") != std::string::npos) return "Digest";
  if (plain.find("basic") != std::string::npos) return "Basic";
  std::string word;
  std::istringstream(plain) >> word;
  return word.substr(0, word.find(','));
}

// Sends on the caller's thread. False, with the error set, when no answer came.
bool exchange(axis2_svc_client_t* client, const axutil_env_t* env, axiom_node_t* payload,
              Reply& reply) {
  const std::string request = axis2c::envelope(payload);
  client->answer.reset();
  client->status = 0;
  client->authType.clear();
  std::string why;
  if (!client->transport.post(*client->options, client->proxy, request, reply, why)) {
    fail(env, AXIS2_ERROR_HTTP_CLIENT_TRANSPORT_ERROR, why);
    return false;
  }
  client->status = reply.status;
  client->authType = schemeIn(reply.status == 407 ? reply.proxyChallenge : reply.httpChallenge);
  return true;
}

bool knows(axis2_svc_client_t* client, const axutil_env_t* env, const axutil_qname_t* op) {
  if (axis2_svc_get_op_with_qname(client->svc, env, op) != nullptr) return true;
  fail(env, AXIS2_ERROR_INVALID_STATE_SVC, "");
  return false;
}

// An installation's proxy: <parameter name="PROXY" proxy_host="..." proxy_port="..."/>, anywhere.
std::string findProxy(const xmlNode* node) {
  const auto attribute = [node](const char* name) {
    xmlChar* text = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
    const std::unique_ptr<xmlChar, decltype(xmlFree)> guard(text, xmlFree);
    return std::string(text == nullptr ? "" : reinterpret_cast<char*>(text));
  };
  if (node->type == XML_ELEMENT_NODE && attribute("name") == "PROXY") {
    return attribute("proxy_host") + ":" + attribute("proxy_port");
  }
  for (const xmlNode* child = node->children; child != nullptr; child = child->next) {
    if (child->type != XML_ELEMENT_NODE) continue;
    std::string found = findProxy(child);
    if (!found.empty()) return found;
  }
  return "";
}

std::string configuredProxy(const char* home) {
  std::ifstream file(std::string(home == nullptr ? "" : home) + "/axis2.xml");
  std::ostringstream text;
  text << file.rdbuf();
  std::string ignored;
  const Document document = axis2c::parse(text.str(), ignored);
  return document ? findProxy(xmlDocGetRootElement(document.get())) : "";
}

// A call on its own thread: everything it touches is its own but the log.
void callBack(axutil_log_t* log, axis2_options_t* options, const std::string& proxy,
              const std::string& request, axis2_callback_t* callback) {
  axutil_env_t* env = axis2c::newEnv(log);
  Reply reply;
  std::string why;
  Document document(nullptr, xmlFreeDoc);
  if (axis2c::Transport().post(*options, proxy, request, reply, why)) {
    document = openReply(env, reply);
  } else {
    fail(env, AXIS2_ERROR_HTTP_CLIENT_TRANSPORT_ERROR, why);
  }
  if (document) {
    callback->envelope = xmlDocGetRootElement(document.get());
    if (callback->complete != nullptr) callback->complete(callback, env);
  } else if (callback->error != nullptr) {
    callback->error(callback, env, env->error->error_number);
  }
  delete callback;
  axis2c::freeOptions(options);
  axis2c::freeEnvButLog(env);
}

}  // namespace

axis2_callback_t* axis2_callback_create(const axutil_env_t*) {
  return new axis2_callback;
}
void axis2_callback_set_on_complete(axis2_callback_t* callback, axis2_on_complete_func_ptr f) {
  callback->complete = f;
}
void axis2_callback_set_on_error(axis2_callback_t* callback, axis2_on_error_func_ptr f) {
  callback->error = f;
}
axis2_status_t axis2_callback_set_data(axis2_callback_t* callback, void* data) {
  callback->data = data;
  return AXIS2_SUCCESS;
}
void* axis2_callback_get_data(const axis2_callback_t* callback) {
  return callback->data;
}
axiom_soap_envelope_t* axis2_callback_get_envelope(const axis2_callback_t* callback,
                                                   const axutil_env_t*) {
  return reinterpret_cast<axiom_soap_envelope_t*>(callback->envelope);
}

axis2_options_t* axis2_svc_client_get_options(const axis2_svc_client_t* client,
                                              const axutil_env_t*) {
  return client->options;
}

axis2_svc_t* axis2_svc_client_get_svc(const axis2_svc_client_t* client, const axutil_env_t*) {
  return client->svc;
}

axis2_status_t axis2_svc_client_set_proxy(axis2_svc_client_t* client, const axutil_env_t* env,
                                          axis2_char_t* host, axis2_char_t* port) {
  if (host == nullptr || port == nullptr) {
    fail(env, AXIS2_ERROR_INVALID_NULL_PARAM, "");
    return AXIS2_FAILURE;
  }
  client->proxy = std::string(host) + ":" + port;
  return AXIS2_SUCCESS;
}

axis2_status_t axis2_svc_client_send_robust(axis2_svc_client_t* client, const axutil_env_t* env,
                                            const axiom_node_t* payload) {
  Reply reply;
  if (!exchange(client, env, const_cast<axiom_node_t*>(payload), reply)) return AXIS2_FAILURE;
  if (succeeded(reply.status) && reply.body.empty()) return AXIS2_SUCCESS;
  return openReply(env, reply) ? AXIS2_SUCCESS : AXIS2_FAILURE;
}

axiom_node_t* axis2_svc_client_send_receive_with_op_qname(axis2_svc_client_t* client,
                                                          const axutil_env_t* env,
                                                          const axutil_qname_t* op_qname,
                                                          const axiom_node_t* payload) {
  if (!knows(client, env, op_qname)) {
    axiom_node_free_tree(const_cast<axiom_node_t*>(payload), env);
    return nullptr;
  }
  Reply reply;
  if (!exchange(client, env, const_cast<axiom_node_t*>(payload), reply)) return nullptr;
  client->answer = openReply(env, reply);
  if (!client->answer) return nullptr;
  const xmlNode* root = xmlDocGetRootElement(client->answer.get());
  xmlNode* first = axis2c::childElement(axis2c::childElement(root, "Body"), nullptr);
  if (first == nullptr) {
    fail(env, AXIS2_ERROR_INVALID_SOAP_ENVELOPE_STATE, "The answer's body is empty");
  }
  return axis2c::toNode(first);
}

void axis2_svc_client_send_receive_non_blocking_with_op_qname(axis2_svc_client_t* client,
                                                              const axutil_env_t* env,
                                                              const axutil_qname_t* op_qname,
                                                              const axiom_node_t* payload,
                                                              axis2_callback_t* callback) {
  if (!knows(client, env, op_qname)) {
    axiom_node_free_tree(const_cast<axiom_node_t*>(payload), env);
    if (callback->error != nullptr) callback->error(callback, env, env->error->error_number);
    delete callback;
    return;
  }
  auto& calls = client->calls;
  calls.erase(std::remove_if(calls.begin(), calls.end(),
                             [](const std::future<void>& call) {
                               return call.wait_for(std::chrono::seconds(0)) ==
                                      std::future_status::ready;
                             }),
              calls.end());
  calls.push_back(std::async(std::launch::async, callBack, env->log,
                             axis2c::copyOptions(*client->options, env), client->proxy,
                             axis2c::envelope(const_cast<axiom_node_t*>(payload)), callback));
}

axis2_bool_t axis2_svc_client_get_http_auth_required(const axis2_svc_client_t* client,
                                                     const axutil_env_t*) {
  return client->status == 401 ? AXIS2_TRUE : AXIS2_FALSE;
}

axis2_bool_t axis2_svc_client_get_proxy_auth_required(const axis2_svc_client_t* client,
                                                      const axutil_env_t*) {
  return client->status == 407 ? AXIS2_TRUE : AXIS2_FALSE;
}

axis2_char_t* axis2_svc_client_get_auth_type(const axis2_svc_client_t* client,
                                             const axutil_env_t*) {
  return client->authType.empty() ? nullptr : const_cast<char*>(client->authType.c_str());
}

axis2_stub_t* axis2_stub_create_with_endpoint_ref_and_client_home(
    const axutil_env_t* env, axis2_endpoint_ref_t* endpoint_ref, const axis2_char_t* client_home) {
  if (endpoint_ref == nullptr || endpoint_ref->address.empty()) {
    fail(env, AXIS2_ERROR_INVALID_ADDRESS, "");
    return nullptr;
  }
  auto* client = new axis2_svc_client{new axis2_options, axis2c::newService(env),
                                      configuredProxy(client_home)};
  client->options->address = endpoint_ref->address;
  return new axis2_stub{client};
}

void axis2_stub_free(axis2_stub_t* stub, const axutil_env_t*) {
  if (stub == nullptr) return;
  stub->client->calls.clear();  // waits for each
  axis2c::freeOptions(stub->client->options);
  axis2c::freeService(stub->client->svc);
  delete stub->client;
  delete stub;
}

axis2_svc_client_t* axis2_stub_get_svc_client(const axis2_stub_t* stub, const axutil_env_t*) {
  return stub == nullptr ? nullptr : stub->client;
}

axis2_options_t* axis2_stub_get_options(const axis2_stub_t* stub, const axutil_env_t*) {
  return stub == nullptr ? nullptr : stub->client->options;
}
