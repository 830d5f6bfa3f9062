#include <axutil_array_list.h>
#include <axutil_qname.h>
#include <axutil_string.h>

#include <string>
#include <vector>

#include "internal.h"

struct axutil_array_list {
  std::vector<void*> items;
};

struct axutil_string {
  std::string text;
};

axutil_array_list_t* axutil_array_list_create(const axutil_env_t*, int initial_capacity) {
  auto* list = new axutil_array_list;
  if (initial_capacity > 0) list->items.reserve(static_cast<std::size_t>(initial_capacity));
  return list;
}

void axutil_array_list_free(axutil_array_list_t* list, const axutil_env_t*) {
  delete list;
}

int axutil_array_list_size(axutil_array_list_t* list, const axutil_env_t*) {
  return list == nullptr ? 0 : static_cast<int>(list->items.size());
}

axis2_status_t axutil_array_list_add(axutil_array_list_t* list, const axutil_env_t*,
                                     const void* item) {
  list->items.push_back(const_cast<void*>(item));
  return AXIS2_SUCCESS;
}

namespace {

// The item's place, or null with the error set.
void** at(axutil_array_list_t* list, const axutil_env_t* env, int index) {
  if (index >= 0 && index < axutil_array_list_size(list, env)) {
    return &list->items[static_cast<std::size_t>(index)];
  }
  AXIS2_ERROR_SET(env->error, AXIS2_ERROR_INDEX_OUT_OF_BOUNDS, AXIS2_FAILURE);
  return nullptr;
}

char* orNull(std::string& text) {
  return text.empty() ? nullptr : text.data();
}

}  // namespace

void* axutil_array_list_get(axutil_array_list_t* list, const axutil_env_t* env, int index) {
  void** place = at(list, env, index);
  return place == nullptr ? nullptr : *place;
}

void* axutil_array_list_set(axutil_array_list_t* list, const axutil_env_t* env, int index,
                            void* item) {
  void** place = at(list, env, index);
  if (place == nullptr) return nullptr;
  void* previous = *place;
  *place = item;
  return previous;
}

void* axutil_array_list_remove(axutil_array_list_t* list, const axutil_env_t* env, int index) {
  void** place = at(list, env, index);
  if (place == nullptr) return nullptr;
  void* item = *place;
  list->items.erase(list->items.begin() + index);
  return item;
}

axutil_qname_t* axutil_qname_create(const axutil_env_t* env, const axis2_char_t* localpart,
                                    const axis2_char_t* namespace_uri, const axis2_char_t*) {
  if (localpart == nullptr) {
    AXIS2_ERROR_SET(env->error, AXIS2_ERROR_INVALID_NULL_PARAM, AXIS2_FAILURE);
    return nullptr;
  }
  return new axutil_qname{localpart, namespace_uri == nullptr ? "" : namespace_uri};
}

void axutil_qname_free(axutil_qname_t* qname, const axutil_env_t*) {
  delete qname;
}

axis2_bool_t axutil_qname_equals(const axutil_qname_t* qname, const axutil_env_t*,
                                 const axutil_qname_t* other) {
  return qname->local == other->local && qname->uri == other->uri ? AXIS2_TRUE : AXIS2_FALSE;
}

axis2_char_t* axutil_qname_get_localpart(const axutil_qname_t* qname, const axutil_env_t*) {
  return const_cast<char*>(qname->local.c_str());
}

axis2_char_t* axutil_qname_get_uri(const axutil_qname_t* qname, const axutil_env_t*) {
  return orNull(const_cast<axutil_qname_t*>(qname)->uri);
}

axutil_string_t* axutil_string_create(const axutil_env_t* env, const axis2_char_t* text) {
  if (text == nullptr) {
    AXIS2_ERROR_SET(env->error, AXIS2_ERROR_INVALID_NULL_PARAM, AXIS2_FAILURE);
    return nullptr;
  }
  return new axutil_string{text};
}

void axutil_string_free(axutil_string_t* string, const axutil_env_t*) {
  delete string;
}

const axis2_char_t* axutil_string_get_buffer(const axutil_string_t* string, const axutil_env_t*) {
  return string->text.c_str();
}

void* axutil_strdup(const axutil_env_t*, const void* text) {
  return text == nullptr ? nullptr : strdup(static_cast<const char*>(text));
}
