#include "adb_runtime.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct adb_record {
  struct Slot {
    adb_value_t value{};
    bool set = false;
  };
  const adb_type_t* type;
  std::vector<Slot> slots;
};

namespace {

bool holdsPointer(const adb_field_t& field) {
  return field.occurs == ADB_LIST || field.kind >= ADB_STRING;
}

// Code and text go to the environment's error, the text to the log as well. Returns failure.
__attribute__((format(printf, 3, 4))) axis2_status_t fail(const axutil_env_t* env,
                                                          axutil_error_codes_t code,
                                                          const char* format, ...) {
  // Axis2/C keeps the pointer, so the text outlives the call.
  thread_local char text[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  AXIS2_ERROR_SET(env->error, code, AXIS2_FAILURE);
  AXIS2_ERROR_SET_MESSAGE(env->error, text);
  AXIS2_LOG_ERROR(env->log, AXIS2_LOG_SI, "%s", text);
  return AXIS2_FAILURE;
}

axis2_status_t failNull(const axutil_env_t* env, const adb_field_t& field) {
  return fail(env, AXIS2_ERROR_INVALID_NULL_PARAM,
              "%s is being set to NULL, but it is not a nullable element", field.name);
}

bool isRecord(const adb_record_t* record, const axutil_env_t* env) {
  if (record != nullptr) return true;
  AXIS2_ERROR_SET(env->error, AXIS2_ERROR_INVALID_NULL_PARAM, AXIS2_FAILURE);
  return false;
}

void freeItem(const adb_field_t& field, const axutil_env_t* env, void* item) {
  if (item == nullptr) return;
  switch (field.kind) {
    case ADB_STRING:
      AXIS2_FREE(env->allocator, item);
      break;
    case ADB_URI:
      axutil_uri_free(static_cast<axutil_uri_t*>(item), env);
      break;
    default:
      adb_free(static_cast<adb_record_t*>(item), env);
  }
}

void clear(adb_record_t* record, const axutil_env_t* env, unsigned at) {
  const adb_field_t& field = record->type->fields[at];
  adb_record::Slot& slot = record->slots[at];
  if (slot.set && field.occurs == ADB_LIST) {
    auto* list = static_cast<axutil_array_list_t*>(slot.value.p);
    for (int i = 0; i < axutil_array_list_size(list, env); ++i) {
      freeItem(field, env, axutil_array_list_get(list, env, i));
    }
    axutil_array_list_free(list, env);
  } else if (slot.set && holdsPointer(field)) {
    freeItem(field, env, slot.value.p);
  }
  slot = {};
}

void store(adb_record_t* record, const axutil_env_t* env, unsigned at, adb_value_t value) {
  clear(record, env, at);
  record->slots[at] = {value, true};
}

// ---- text of values: as XML Schema writes them, whatever the process's locale

template <typename Number>
std::optional<Number> parseNumber(std::string_view text) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  Number number{};
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (code != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

template <typename Number>
std::string formatNumber(Number number) {
  if constexpr (std::is_floating_point_v<Number>) {
    if (std::isnan(number)) return "NaN";
    if (std::isinf(number)) return number < 0 ? "-INF" : "INF";
  }
  char text[64];
  return std::string(text, std::to_chars(text, text + sizeof text, number).ptr);
}

std::optional<int> parseBool(std::string_view text) {
  if (text == "true" || text == "1") return AXIS2_TRUE;
  if (text == "false" || text == "0") return AXIS2_FALSE;
  return std::nullopt;
}

std::string_view trimmed(const char* text) {
  std::string_view view = text == nullptr ? "" : text;
  const auto first = view.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return view.substr(first, view.find_last_not_of(" \t\r\n") - first + 1);
}

template <typename T>
bool assign(T& target, const std::optional<T>& value) {
  if (value) target = *value;
  return value.has_value();
}

// False when the text is no value of that kind.
bool parseScalar(adb_kind_t kind, const char* text, adb_value_t& value) {
  const std::string_view word = trimmed(text);
  switch (kind) {
    case ADB_BOOL:
      return assign(value.i, parseBool(word));
    case ADB_INT:
      // Switches are numbers here, and devices write them as words all the same.
      return assign(value.i, parseNumber<int>(word)) || assign(value.i, parseBool(word));
    case ADB_UNSIGNED:
      return assign(value.u, parseNumber<unsigned>(word));
    case ADB_FLOAT:
      return assign(value.f, parseNumber<float>(word));
    default:
      return assign(value.d, parseNumber<double>(word));
  }
}

std::string formatScalar(adb_kind_t kind, adb_value_t value) {
  switch (kind) {
    case ADB_BOOL:
      return value.i != 0 ? "true" : "false";
    case ADB_INT:
      return formatNumber(value.i);
    case ADB_UNSIGNED:
      return formatNumber(value.u);
    case ADB_FLOAT:
      return formatNumber(value.f);
    default:
      return formatNumber(value.d);
  }
}

// ---- writing

void writeText(const axutil_env_t* env, axiom_node_t* node, const char* text) {
  auto* element = static_cast<axiom_element_t*>(axiom_node_get_data_element(node, env));
  axiom_element_set_text(element, env, text, node);
}

void writeScalar(const axutil_env_t* env, axiom_node_t* node, const adb_field_t& field,
                 adb_value_t value) {
  if (field.kind == ADB_STRING) {
    writeText(env, node, static_cast<const char*>(value.p));
  } else if (field.kind == ADB_URI) {
    axis2_char_t* text = axutil_uri_to_string(static_cast<axutil_uri_t*>(value.p), env, 0);
    writeText(env, node, text);
    AXIS2_FREE(env->allocator, text);
  } else {
    writeText(env, node, formatScalar(field.kind, value).c_str());
  }
}

axis2_status_t writeFields(const adb_record_t* record, const axutil_env_t* env, axiom_node_t* node);

axis2_status_t writeItem(const axutil_env_t* env, axiom_node_t* parent, const adb_field_t& field,
                         adb_value_t value) {
  axiom_node_t* node = nullptr;
  if (axiom_element_create(env, parent, field.name, nullptr, &node) == nullptr) {
    return AXIS2_FAILURE;
  }
  if (field.kind == ADB_RECORD) {
    return writeFields(static_cast<adb_record_t*>(value.p), env, node);
  }
  writeScalar(env, node, field, value);
  return AXIS2_SUCCESS;
}

axis2_status_t writeField(const axutil_env_t* env, axiom_node_t* node, const adb_field_t& field,
                          adb_value_t value) {
  if (field.occurs != ADB_LIST) return writeItem(env, node, field, value);
  auto* list = static_cast<axutil_array_list_t*>(value.p);
  for (int i = 0; i < axutil_array_list_size(list, env); ++i) {
    adb_value_t item{};
    item.p = axutil_array_list_get(list, env, i);
    if (item.p != nullptr && writeItem(env, node, field, item) == AXIS2_FAILURE) {
      return AXIS2_FAILURE;
    }
  }
  return AXIS2_SUCCESS;
}

axis2_status_t writeFields(const adb_record_t* record, const axutil_env_t* env,
                           axiom_node_t* node) {
  for (unsigned at = 0; at < record->type->count; ++at) {
    const adb_field_t& field = record->type->fields[at];
    const adb_record::Slot& slot = record->slots[at];
    if (!slot.set && field.occurs != ADB_REQUIRED) continue;
    if (!slot.set) {
      return fail(env, AXIS2_ERROR_DATA_ELEMENT_IS_NULL,
                  "Nil value found in non-nillable property %s of %s", field.name,
                  record->type->name);
    }
    if (record->type->form == ADB_TEXT) {
      writeScalar(env, node, field, slot.value);
    } else if (writeField(env, node, field, slot.value) == AXIS2_FAILURE) {
      return AXIS2_FAILURE;
    }
  }
  return AXIS2_SUCCESS;
}

// ---- reading

axiom_element_t* elementOf(axiom_node_t* node, const axutil_env_t* env) {
  return static_cast<axiom_element_t*>(axiom_node_get_data_element(node, env));
}

axiom_node_t* skipToElement(axiom_node_t* node, const axutil_env_t* env) {
  while (node != nullptr && axiom_node_get_node_type(node, env) != AXIOM_ELEMENT) {
    node = axiom_node_get_next_sibling(node, env);
  }
  return node;
}

bool isNamed(axiom_node_t* node, const axutil_env_t* env, std::string_view name) {
  return name == axiom_element_get_localname(elementOf(node, env), env);
}

bool isMarkedNil(axiom_node_t* node, const axutil_env_t* env) {
  axutil_qname_t* name =
      axutil_qname_create(env, "nil", "http://www.w3.org/2001/XMLSchema-instance", "xsi");
  const char* value = axiom_element_get_attribute_value(elementOf(node, env), env, name);
  axutil_qname_free(name, env);
  return parseBool(trimmed(value)).value_or(AXIS2_FALSE) != AXIS2_FALSE;
}

enum class Read { value, nothing, failed };

axis2_status_t readFields(adb_record_t* record, const axutil_env_t* env, axiom_node_t* node);

Read readRecord(const adb_type_t* type, const axutil_env_t* env, axiom_node_t* node,
                adb_value_t& value) {
  if (type->form == ADB_TEXT) {
    adb_value_t ignored{};
    const char* text = axiom_element_get_text(elementOf(node, env), env, node);
    if (!parseScalar(type->fields[0].kind, text, ignored)) return Read::nothing;
  }
  adb_record_t* record = adb_create(type, env);
  if (readFields(record, env, node) == AXIS2_FAILURE) {
    adb_free(record, env);
    return Read::failed;
  }
  value.p = record;
  return Read::value;
}

// On Read::value the caller owns what `value` points to.
Read readItem(const adb_field_t& field, const axutil_env_t* env, axiom_node_t* node,
              adb_value_t& value) {
  if (isMarkedNil(node, env)) return Read::nothing;
  if (field.kind == ADB_RECORD) return readRecord(field.type, env, node, value);
  const char* text = axiom_element_get_text(elementOf(node, env), env, node);
  if (field.kind == ADB_STRING) {
    value.p = axutil_strdup(env, text == nullptr ? "" : text);
    return Read::value;
  }
  if (field.kind == ADB_URI) {
    value.p = text == nullptr ? nullptr : axutil_uri_parse_string(env, text);
    return value.p == nullptr ? Read::nothing : Read::value;
  }
  if (parseScalar(field.kind, text, value)) return Read::value;
  AXIS2_LOG_WARNING(env->log, AXIS2_LOG_SI, "%s is passed over: \"%.80s\" is no value of its type",
                    field.name, text == nullptr ? "" : text);
  return Read::nothing;
}

axis2_status_t readList(adb_record_t* record, const axutil_env_t* env, unsigned at,
                        axiom_node_t* first) {
  const adb_field_t& field = record->type->fields[at];
  for (axiom_node_t* node = skipToElement(first, env); node != nullptr;
       node = skipToElement(axiom_node_get_next_sibling(node, env), env)) {
    if (!isNamed(node, env, field.name)) continue;
    adb_value_t item{};
    const Read result = readItem(field, env, node, item);
    if (result == Read::failed) return AXIS2_FAILURE;
    if (result == Read::nothing) continue;
    const axis2_status_t added = adb_add(record, env, at, item.p);
    if (field.kind == ADB_STRING) AXIS2_FREE(env->allocator, item.p);
    if (added == AXIS2_FAILURE) return AXIS2_FAILURE;
  }
  return AXIS2_SUCCESS;
}

axis2_status_t readField(adb_record_t* record, const axutil_env_t* env, unsigned at,
                         axiom_node_t* first) {
  const adb_field_t& field = record->type->fields[at];
  axiom_node_t* node = skipToElement(first, env);
  while (node != nullptr && !isNamed(node, env, field.name)) {
    node = skipToElement(axiom_node_get_next_sibling(node, env), env);
  }
  if (node == nullptr) {
    if (field.occurs != ADB_REQUIRED) return AXIS2_SUCCESS;
    return fail(env, AXIS2_ERROR_DATA_ELEMENT_IS_NULL,
                "non nillable or minOuccrs != 0 element %s missing", field.name);
  }
  adb_value_t value{};
  const Read result = readItem(field, env, node, value);
  if (result == Read::failed) return AXIS2_FAILURE;
  if (result == Read::value) {
    store(record, env, at, value);
  } else if (field.occurs == ADB_REQUIRED) {
    return fail(env, AXIS2_ERROR_DATA_ELEMENT_IS_NULL,
                "NULL value is set to a non nillable element %s", field.name);
  }
  return AXIS2_SUCCESS;
}

axis2_status_t readFields(adb_record_t* record, const axutil_env_t* env, axiom_node_t* node) {
  if (record->type->form == ADB_TEXT) {
    const adb_field_t& field = record->type->fields[0];
    adb_value_t value{};
    const char* text = axiom_element_get_text(elementOf(node, env), env, node);
    if (!parseScalar(field.kind, text, value)) {
      return fail(env, AXIS2_ERROR_DATA_ELEMENT_IS_NULL,
                  "NULL value is set to a non nillable element %s", field.name);
    }
    store(record, env, 0, value);
    return AXIS2_SUCCESS;
  }
  axiom_node_t* first = axiom_node_get_first_child(node, env);
  for (unsigned at = 0; at < record->type->count; ++at) {
    const bool list = record->type->fields[at].occurs == ADB_LIST;
    const axis2_status_t status =
        list ? readList(record, env, at, first) : readField(record, env, at, first);
    if (status == AXIS2_FAILURE) return status;
  }
  return AXIS2_SUCCESS;
}

// The list of a list field; null when it is unset.
axutil_array_list_t* listOf(adb_record_t* record, const axutil_env_t* env, unsigned at) {
  if (!isRecord(record, env) || !record->slots[at].set) return nullptr;
  return static_cast<axutil_array_list_t*>(record->slots[at].value.p);
}

bool isIndex(adb_record_t* record, const axutil_env_t* env, unsigned at, int i) {
  if (!isRecord(record, env)) return false;
  if (i >= 0 && i < adb_sizeof(record, env, at)) return true;
  fail(env, AXIS2_ERROR_INDEX_OUT_OF_BOUNDS, "%s has no item %d", record->type->fields[at].name, i);
  return false;
}

void* ownItem(const adb_field_t& field, const axutil_env_t* env, void* item) {
  return field.kind == ADB_STRING ? axutil_strdup(env, item) : item;
}

}  // namespace

adb_record_t* adb_create(const adb_type_t* type, const axutil_env_t*) {
  return new adb_record{type, std::vector<adb_record::Slot>(type->count)};
}

adb_record_t* adb_create_with_values(const adb_type_t* type, const axutil_env_t* env,
                                     const adb_value_t* values) {
  for (unsigned at = 0; at < type->count; ++at) {
    const adb_field_t& field = type->fields[at];
    if (field.occurs == ADB_REQUIRED && holdsPointer(field) && values[at].p == nullptr) {
      failNull(env, field);
      return nullptr;
    }
  }
  adb_record_t* record = adb_create(type, env);
  for (unsigned at = 0; at < type->count; ++at) adb_set(record, env, at, values[at]);
  return record;
}

axis2_status_t adb_free(adb_record_t* record, const axutil_env_t* env) {
  if (!isRecord(record, env)) return AXIS2_FAILURE;
  for (unsigned at = 0; at < record->type->count; ++at) clear(record, env, at);
  delete record;
  return AXIS2_SUCCESS;
}

axiom_node_t* adb_serialize(adb_record_t* record, const axutil_env_t* env, axiom_node_t* parent) {
  if (!isRecord(record, env)) return nullptr;
  axiom_node_t* node = nullptr;
  axiom_namespace_t* ns = nullptr;
  if (record->type->form == ADB_ELEMENT) ns = axiom_namespace_create(env, record->type->ns, "n");
  // Built apart, so that a failure leaves the parent as it was. A record of a type fills the
  // element that its owner made for it.
  const bool fillsParent = parent != nullptr && record->type->form != ADB_ELEMENT;
  if (fillsParent) return writeFields(record, env, parent) == AXIS2_SUCCESS ? parent : nullptr;
  if (axiom_element_create(env, parent, record->type->name, ns, &node) == nullptr) return nullptr;
  if (writeFields(record, env, node) == AXIS2_SUCCESS) return node;
  axiom_node_free_tree(node, env);
  return nullptr;
}

axis2_status_t adb_deserialize(adb_record_t* record, const axutil_env_t* env, axiom_node_t** node) {
  if (!isRecord(record, env)) return AXIS2_FAILURE;
  for (unsigned at = 0; at < record->type->count; ++at) clear(record, env, at);
  const char* name = record->type->name;
  axiom_node_t* element = node == nullptr ? nullptr : skipToElement(*node, env);
  if (element == nullptr) {
    return fail(env, AXIS2_ERROR_DATA_ELEMENT_IS_NULL,
                "Failed in building adb object for %s : NULL elemenet can not be passed to "
                "deserialize",
                name);
  }
  if (record->type->form == ADB_ELEMENT && !isNamed(element, env, name)) {
    return fail(env, AXIS2_ERROR_DATA_ELEMENT_IS_NULL,
                "Failed in building adb object for %s : Expected %s but returned %s", name, name,
                axiom_element_get_localname(elementOf(element, env), env));
  }
  return readFields(record, env, element);
}

adb_value_t adb_get(adb_record_t* record, const axutil_env_t* env, unsigned at) {
  return isRecord(record, env) ? record->slots[at].value : adb_value_t{};
}

axis2_status_t adb_set(adb_record_t* record, const axutil_env_t* env, unsigned at,
                       adb_value_t value) {
  if (!isRecord(record, env)) return AXIS2_FAILURE;
  const adb_field_t& field = record->type->fields[at];
  const adb_record::Slot& slot = record->slots[at];
  if (holdsPointer(field)) {
    if (value.p == nullptr && field.occurs == ADB_REQUIRED) return failNull(env, field);
    if (value.p == nullptr) return adb_reset(record, env, at);
    if (slot.set && slot.value.p == value.p) return AXIS2_SUCCESS;
    if (field.occurs != ADB_LIST) value.p = ownItem(field, env, value.p);
  }
  store(record, env, at, value);
  return AXIS2_SUCCESS;
}

axis2_status_t adb_reset(adb_record_t* record, const axutil_env_t* env, unsigned at) {
  if (!isRecord(record, env)) return AXIS2_FAILURE;
  clear(record, env, at);
  return AXIS2_SUCCESS;
}

axis2_bool_t adb_is_nil(adb_record_t* record, const axutil_env_t* env, unsigned at) {
  return isRecord(record, env) && record->slots[at].set ? AXIS2_FALSE : AXIS2_TRUE;
}

axis2_status_t adb_set_nil(adb_record_t* record, const axutil_env_t* env, unsigned at) {
  if (!isRecord(record, env)) return AXIS2_FAILURE;
  const adb_field_t& field = record->type->fields[at];
  return field.occurs == ADB_REQUIRED ? failNull(env, field) : adb_reset(record, env, at);
}

axis2_status_t adb_add(adb_record_t* record, const axutil_env_t* env, unsigned at, void* item) {
  if (!isRecord(record, env)) return AXIS2_FAILURE;
  const adb_field_t& field = record->type->fields[at];
  if (item == nullptr) return failNull(env, field);
  adb_record::Slot& slot = record->slots[at];
  if (!slot.set) slot = {{}, true};
  if (slot.value.p == nullptr) slot.value.p = axutil_array_list_create(env, 4);
  auto* list = static_cast<axutil_array_list_t*>(slot.value.p);
  return axutil_array_list_add(list, env, ownItem(field, env, item));
}

int adb_sizeof(adb_record_t* record, const axutil_env_t* env, unsigned at) {
  axutil_array_list_t* list = listOf(record, env, at);
  return list == nullptr ? 0 : axutil_array_list_size(list, env);
}

void* adb_get_at(adb_record_t* record, const axutil_env_t* env, unsigned at, int i) {
  if (!isIndex(record, env, at, i)) return nullptr;
  return axutil_array_list_get(listOf(record, env, at), env, i);
}

axis2_status_t adb_set_at(adb_record_t* record, const axutil_env_t* env, unsigned at, int i,
                          void* item) {
  if (!isIndex(record, env, at, i)) return AXIS2_FAILURE;
  const adb_field_t& field = record->type->fields[at];
  if (item == nullptr) return failNull(env, field);
  axutil_array_list_t* list = listOf(record, env, at);
  if (axutil_array_list_get(list, env, i) == item) return AXIS2_SUCCESS;
  freeItem(field, env, axutil_array_list_set(list, env, i, ownItem(field, env, item)));
  return AXIS2_SUCCESS;
}

axis2_bool_t adb_is_nil_at(adb_record_t* record, const axutil_env_t* env, unsigned at, int i) {
  return adb_get_at(record, env, at, i) == nullptr ? AXIS2_TRUE : AXIS2_FALSE;
}

axis2_status_t adb_set_nil_at(adb_record_t* record, const axutil_env_t* env, unsigned at, int i) {
  if (!isIndex(record, env, at, i)) return AXIS2_FAILURE;
  axutil_array_list_t* list = listOf(record, env, at);
  freeItem(record->type->fields[at], env, axutil_array_list_set(list, env, i, nullptr));
  return AXIS2_SUCCESS;
}
