// SOAP answers: the XML, then every record that a camera may answer with. What
// could be read can be written and read once more.
#include <axis2_util.h>

#include <cstdint>
#include <memory>
#include <string>

#include "adb_CameraConfiguration.h"
#include "adb_StreamControl.h"
#include "adb_VideoOutput.h"
#include "internal.h"

namespace {

constexpr const adb_type_t* kAnswers[] = {
    &adb_type_ConnectResponse,
    &adb_type_GetActiveSessionIdsResponse,
    &adb_type_GetActiveSessionsResponse,
    &adb_type_RefreshSessionResponse,
    &adb_type_QueryResponse,
    &adb_type_GetSessionParametersResponse,
    &adb_type_DisconnectResponse,
    &adb_type_SeekEventResponse,
    &adb_type_PlayResponse,
    &adb_type_GetConfigurationResponse,
};

void check(const adb_type_t* type, const axutil_env_t* env, axiom_node_t* answer) {
  adb_record_t* record = adb_create(type, env);
  axiom_node_t* node = answer;
  if (adb_deserialize(record, env, &node) == AXIS2_SUCCESS) {
    axiom_node_t* written = adb_serialize(record, env, nullptr);
    if (written != nullptr) {
      axiom_node_t* again = written;
      if (adb_deserialize(record, env, &again) != AXIS2_SUCCESS) __builtin_trap();
      axiom_node_free_tree(written, env);
    }
  }
  adb_free(record, env);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const axutil_env_t* const env = axutil_env_create_all("/dev/null", AXIS2_LOG_LEVEL_INFO);
  std::string why;
  const axis2c::Document document =
      axis2c::parse(std::string(reinterpret_cast<const char*>(data), size), why);
  if (!document) return 0;
  xmlNode* root = xmlDocGetRootElement(document.get());
  xmlNode* payload = axis2c::childElement(axis2c::childElement(root, "Body"), nullptr);
  if (payload == nullptr) payload = root;
  for (const adb_type_t* type : kAnswers) check(type, env, axis2c::toNode(payload));
  return 0;
}
