#include <axis2_svc.h>

#include <map>
#include <vector>

#include "internal.h"

struct axis2_msg {
  int references = 1;
};

struct axis2_op {
  axutil_qname name;
  std::string pattern;
  std::map<std::string, axis2_msg_t*> messages;
};

struct axis2_svc {
  axutil_qname name;
  std::vector<axis2_op_t*> operations;
};

namespace {

void release(axis2_msg_t* msg) {
  if (--msg->references == 0) delete msg;
}

void freeOperation(axis2_op_t* op) {
  for (const auto& [label, msg] : op->messages) release(msg);
  delete op;
}

}  // namespace

axis2_svc_t* axis2c::newService(const axutil_env_t* env) {
  auto* svc = new axis2_svc;
  const axutil_qname name{AXIS2_ANON_OUT_IN_OP, ""};
  axis2_op_t* op = axis2_op_create_with_qname(env, &name);
  for (const char* label : {AXIS2_MSG_OUT, AXIS2_MSG_IN, AXIS2_MSG_OUT_FAULT, AXIS2_MSG_IN_FAULT}) {
    axis2_op_add_msg(op, env, label, new axis2_msg);
  }
  axis2_svc_add_op(svc, env, op);
  return svc;
}

void axis2c::freeService(axis2_svc_t* svc) {
  for (axis2_op_t* op : svc->operations) freeOperation(op);
  delete svc;
}

axis2_status_t axis2_svc_set_qname(axis2_svc_t* svc, const axutil_env_t*,
                                   const axutil_qname_t* qname) {
  svc->name = *qname;
  return AXIS2_SUCCESS;
}

axis2_status_t axis2_svc_add_op(axis2_svc_t* svc, const axutil_env_t*, axis2_op_t* op) {
  svc->operations.push_back(op);
  return AXIS2_SUCCESS;
}

axis2_op_t* axis2_svc_get_op_with_name(const axis2_svc_t* svc, const axutil_env_t*,
                                       const axis2_char_t* op_name) {
  for (axis2_op_t* op : svc->operations) {
    if (op->name.local == op_name) return op;
  }
  return nullptr;
}

axis2_op_t* axis2_svc_get_op_with_qname(const axis2_svc_t* svc, const axutil_env_t* env,
                                        const axutil_qname_t* op_qname) {
  for (axis2_op_t* op : svc->operations) {
    if (axutil_qname_equals(&op->name, env, op_qname)) return op;
  }
  return nullptr;
}

axis2_op_t* axis2_op_create_with_qname(const axutil_env_t*, const axutil_qname_t* qname) {
  return new axis2_op{*qname, "", {}};
}

axis2_status_t axis2_op_set_msg_exchange_pattern(axis2_op_t* op, const axutil_env_t*,
                                                 const axis2_char_t* pattern) {
  op->pattern = pattern;
  return AXIS2_SUCCESS;
}

axis2_msg_t* axis2_op_get_msg(const axis2_op_t* op, const axutil_env_t*,
                              const axis2_char_t* label) {
  const auto found = op->messages.find(label);
  return found == op->messages.end() ? nullptr : found->second;
}

axis2_status_t axis2_op_add_msg(axis2_op_t* op, const axutil_env_t*, const axis2_char_t* label,
                                const axis2_msg_t* msg) {
  axis2_msg_t*& place = op->messages[label];
  if (place != nullptr) release(place);
  place = const_cast<axis2_msg_t*>(msg);
  return AXIS2_SUCCESS;
}

axis2_status_t axis2_msg_increment_ref(axis2_msg_t* msg, const axutil_env_t*) {
  ++msg->references;
  return AXIS2_SUCCESS;
}
