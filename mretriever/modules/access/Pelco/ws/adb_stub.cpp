// Calls of the generated stubs.
#include <axiom_soap.h>
#include <axis2_stub.h>

#include <initializer_list>

#include "adb_runtime.h"

namespace {

// Sets an operation's SOAP action while it is called. An action that stands in the options already
// stays in force, as a caller's own choice.
class ActionGuard {
 public:
  ActionGuard(axis2_options_t* options, const axutil_env_t* env, const char* action)
      : options_(options), env_(env) {
    if (axis2_options_get_soap_action(options, env) != nullptr) return;
    set_ = true;
    axutil_string_t* text = axutil_string_create(env, action);
    axis2_options_set_soap_action(options, env, text);
    axis2_options_set_action(options, env, action);
    axutil_string_free(text, env);
  }
  ActionGuard(const ActionGuard&) = delete;
  ActionGuard& operator=(const ActionGuard&) = delete;
  ~ActionGuard() {
    if (!set_) return;
    axis2_options_set_soap_action(options_, env_, nullptr);
    axis2_options_set_action(options_, env_, nullptr);
  }

 private:
  axis2_options_t* options_;
  const axutil_env_t* env_;
  bool set_ = false;
};

// The request ready to be sent with the stub's options. Null when one of the two is not to be had.
axiom_node_t* prepare(axis2_stub_t* stub, const axutil_env_t* env, adb_record_t* request,
                      axis2_options_t*& options) {
  axiom_node_t* payload = adb_serialize(request, env, nullptr);
  if (payload == nullptr) return nullptr;
  options = axis2_stub_get_options(stub, env);
  if (options == nullptr) {
    AXIS2_ERROR_SET(env->error, AXIS2_ERROR_INVALID_NULL_PARAM, AXIS2_FAILURE);
    AXIS2_LOG_ERROR(env->log, AXIS2_LOG_SI, "options is null in stub");
    axiom_node_free_tree(payload, env);
    return nullptr;
  }
  return payload;
}

adb_record_t* readResponse(const adb_type_t* type, const axutil_env_t* env, axiom_node_t* node) {
  adb_record_t* response = adb_create(type, env);
  if (adb_deserialize(response, env, &node) == AXIS2_SUCCESS) return response;
  adb_free(response, env);
  AXIS2_LOG_ERROR(env->log, AXIS2_LOG_SI,
                  "NULL returnted from the adb_%s_deserialize: This should be due to an invalid "
                  "XML",
                  type->name);
  return nullptr;
}

struct CallbackData {
  const adb_type_t* response;
  void* userData;
  adb_complete_t complete;
  adb_function_t onComplete;
  adb_error_t onError;
};

axis2_status_t AXIS2_CALL onError(axis2_callback_t* callback, const axutil_env_t* env,
                                  int exception) {
  auto* data = static_cast<CallbackData*>(axis2_callback_get_data(callback));
  const axis2_status_t status =
      data->onError == nullptr ? AXIS2_SUCCESS : data->onError(env, exception, data->userData);
  AXIS2_FREE(env->allocator, data);
  return status;
}

axis2_status_t AXIS2_CALL onComplete(axis2_callback_t* callback, const axutil_env_t* env) {
  auto* data = static_cast<CallbackData*>(axis2_callback_get_data(callback));
  axiom_soap_envelope_t* envelope = axis2_callback_get_envelope(callback, env);
  axiom_soap_body_t* body =
      envelope == nullptr ? nullptr : axiom_soap_envelope_get_body(envelope, env);
  axiom_node_t* base = body == nullptr ? nullptr : axiom_soap_body_get_base_node(body, env);
  axiom_node_t* node = base == nullptr ? nullptr : axiom_node_get_first_child(base, env);
  adb_record_t* response = readResponse(data->response, env, node);
  if (response == nullptr) return onError(callback, env, env->error->error_number);
  const axis2_status_t status = data->complete(data->onComplete, env, response, data->userData);
  AXIS2_FREE(env->allocator, data);
  return status;
}

}  // namespace

axis2_stub_t* adb_stub_create(const adb_service_t* service, const axutil_env_t* env,
                              const axis2_char_t* client_home, const axis2_char_t* endpoint_uri) {
  const char* address = endpoint_uri == nullptr ? service->address : endpoint_uri;
  axis2_endpoint_ref_t* reference = axis2_endpoint_ref_create(env, address);
  axis2_stub_t* stub =
      axis2_stub_create_with_endpoint_ref_and_client_home(env, reference, client_home);
  if (stub != nullptr) adb_stub_populate(service, stub, env);
  axis2_endpoint_ref_free(reference, env);
  return stub;
}

void adb_stub_populate(const adb_service_t* service, axis2_stub_t* stub, const axutil_env_t* env) {
  axis2_svc_t* svc = axis2_svc_client_get_svc(axis2_stub_get_svc_client(stub, env), env);
  axutil_qname_t* name = axutil_qname_create(env, service->name, nullptr, nullptr);
  axis2_svc_set_qname(svc, env, name);
  axutil_qname_free(name, env);
  axis2_op_t* builtIn = axis2_svc_get_op_with_name(svc, env, AXIS2_ANON_OUT_IN_OP);
  for (unsigned i = 0; i < service->count; ++i) {
    name = axutil_qname_create(env, service->operations[i].name, service->ns, nullptr);
    axis2_op_t* op = axis2_op_create_with_qname(env, name);
    axutil_qname_free(name, env);
    axis2_op_set_msg_exchange_pattern(op, env, AXIS2_MEP_URI_OUT_IN);
    for (const char* label :
         {AXIS2_MSG_OUT, AXIS2_MSG_IN, AXIS2_MSG_OUT_FAULT, AXIS2_MSG_IN_FAULT}) {
      axis2_msg_t* msg = axis2_op_get_msg(builtIn, env, label);
      axis2_msg_increment_ref(msg, env);
      axis2_op_add_msg(op, env, label, msg);
    }
    axis2_svc_add_op(svc, env, op);
  }
}

adb_record_t* adb_stub_call(const adb_service_t* service, unsigned op, axis2_stub_t* stub,
                            const axutil_env_t* env, adb_record_t* request) {
  const adb_operation_t& operation = service->operations[op];
  axis2_options_t* options = nullptr;
  axiom_node_t* payload = prepare(stub, env, request, options);
  if (payload == nullptr) return nullptr;
  const ActionGuard action(options, env, operation.action);
  axis2_options_set_soap_version(options, env, AXIOM_SOAP11);
  axutil_qname_t* name = axutil_qname_create(env, operation.name, service->ns, nullptr);
  axiom_node_t* reply = axis2_svc_client_send_receive_with_op_qname(
      axis2_stub_get_svc_client(stub, env), env, name, payload);
  axutil_qname_free(name, env);
  return reply == nullptr ? nullptr : readResponse(operation.response, env, reply);
}

void adb_stub_start(const adb_service_t* service, unsigned op, axis2_stub_t* stub,
                    const axutil_env_t* env, adb_record_t* request, void* user_data,
                    adb_complete_t complete, adb_function_t on_complete, adb_error_t on_error) {
  const adb_operation_t& operation = service->operations[op];
  axis2_options_t* options = nullptr;
  axiom_node_t* payload = prepare(stub, env, request, options);
  if (payload == nullptr) {
    if (on_error != nullptr) on_error(env, env->error->error_number, user_data);
    return;
  }
  auto* data = static_cast<CallbackData*>(AXIS2_MALLOC(env->allocator, sizeof(CallbackData)));
  if (data == nullptr) {
    AXIS2_ERROR_SET(env->error, AXIS2_ERROR_NO_MEMORY, AXIS2_FAILURE);
    AXIS2_LOG_ERROR(env->log, AXIS2_LOG_SI,
                    "Can not allocate memeory for the callback data structures");
    axiom_node_free_tree(payload, env);
    return;
  }
  *data = {operation.response, user_data, complete, on_complete, on_error};
  axis2_callback_t* callback = axis2_callback_create(env);
  axis2_callback_set_on_complete(callback, onComplete);
  axis2_callback_set_on_error(callback, onError);
  axis2_callback_set_data(callback, data);
  const ActionGuard action(options, env, operation.action);
  axis2_options_set_soap_version(options, env, AXIOM_SOAP11);
  axutil_qname_t* name = axutil_qname_create(env, operation.name, service->ns, nullptr);
  axis2_svc_client_send_receive_non_blocking_with_op_qname(axis2_stub_get_svc_client(stub, env),
                                                           env, name, payload, callback);
  axutil_qname_free(name, env);
}
