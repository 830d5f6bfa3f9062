/* The machinery of the generated records and stubs. A generated record is a table of its fields;
 * each generated function is one call of a function here. Only Axis2/C's own interface is used. */
#ifndef ADB_RUNTIME_H
#define ADB_RUNTIME_H

#include <axiom.h>
#include <axis2_client.h>
#include <axis2_util.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
  ADB_INT,
  ADB_UNSIGNED,
  ADB_BOOL,
  ADB_FLOAT,
  ADB_DOUBLE,
  ADB_STRING,
  ADB_URI,
  ADB_RECORD
} adb_kind_t;

typedef enum { ADB_REQUIRED, ADB_OPTIONAL, ADB_LIST } adb_occurs_t;

/* A top-level element has a name to insist on; a type takes the name of the field it stands in; a
 * text record is an element whose text is its one field. */
typedef enum { ADB_ELEMENT, ADB_TYPE, ADB_TEXT } adb_form_t;

typedef struct adb_type adb_type_t;
typedef struct {
  const char* name;
  adb_kind_t kind; /* of the items, for a list */
  adb_occurs_t occurs;
  const adb_type_t* type; /* of a record */
} adb_field_t;
struct adb_type {
  const char* name;
  const char* ns;
  adb_form_t form;
  const adb_field_t* fields;
  unsigned count;
};

typedef union {
  int i; /* ADB_INT, ADB_BOOL */
  unsigned u;
  float f;
  double d;
  void* p; /* text, URI, record, or the axutil_array_list_t of a list */
} adb_value_t;

typedef struct adb_record adb_record_t;

/* Each sets the environment's error and logs the text when it fails. `at` is the field's position
 * from 0 and must be one of the record's type. */
adb_record_t* adb_create(const adb_type_t* type, const axutil_env_t* env);
/* values: one for each field. When it fails the caller still owns all of them. */
adb_record_t* adb_create_with_values(const adb_type_t* type, const axutil_env_t* env,
                                     const adb_value_t* values);
axis2_status_t adb_free(adb_record_t* record, const axutil_env_t* env);
/* Below parent, or as a tree of its own when that is null. Null on failure. */
axiom_node_t* adb_serialize(adb_record_t* record, const axutil_env_t* env, axiom_node_t* parent);
/* Fields are found by their local names, in any order; what is unknown is passed over. After a
 * failure some fields may be set. */
axis2_status_t adb_deserialize(adb_record_t* record, const axutil_env_t* env, axiom_node_t** node);

adb_value_t adb_get(adb_record_t* record, const axutil_env_t* env, unsigned at);
/* Text is copied; any other pointer is owned by the record once this succeeds. */
axis2_status_t adb_set(adb_record_t* record, const axutil_env_t* env, unsigned at,
                       adb_value_t value);
axis2_status_t adb_reset(adb_record_t* record, const axutil_env_t* env, unsigned at);
axis2_bool_t adb_is_nil(adb_record_t* record, const axutil_env_t* env, unsigned at);
axis2_status_t adb_set_nil(adb_record_t* record, const axutil_env_t* env, unsigned at);

/* Items of a list field. An index outside the list fails; an item may be made nil, not null. */
axis2_status_t adb_add(adb_record_t* record, const axutil_env_t* env, unsigned at, void* item);
int adb_sizeof(adb_record_t* record, const axutil_env_t* env, unsigned at);
void* adb_get_at(adb_record_t* record, const axutil_env_t* env, unsigned at, int i);
axis2_status_t adb_set_at(adb_record_t* record, const axutil_env_t* env, unsigned at, int i,
                          void* item);
axis2_bool_t adb_is_nil_at(adb_record_t* record, const axutil_env_t* env, unsigned at, int i);
axis2_status_t adb_set_nil_at(adb_record_t* record, const axutil_env_t* env, unsigned at, int i);

typedef struct {
  const char* name;
  const char* action;
  const adb_type_t* request;
  const adb_type_t* response;
} adb_operation_t;
typedef struct {
  const char* name;
  const char* ns;
  const char* address; /* used when the caller gives none */
  const adb_operation_t* operations;
  unsigned count;
} adb_service_t;

/* A function of a type that only the generated code knows; called through its adb_complete_t. */
typedef void (*adb_function_t)(void);
/* Casts f back to its type and calls it with the response, which the callee owns then. */
typedef axis2_status_t (*adb_complete_t)(adb_function_t f, const axutil_env_t* env,
                                         adb_record_t* response, void* user_data);
typedef axis2_status_t(AXIS2_CALL* adb_error_t)(const axutil_env_t* env, int exception,
                                                void* user_data);

axis2_stub_t* adb_stub_create(const adb_service_t* service, const axutil_env_t* env,
                              const axis2_char_t* client_home, const axis2_char_t* endpoint_uri);
void adb_stub_populate(const adb_service_t* service, axis2_stub_t* stub, const axutil_env_t* env);
/* The response, owned by the caller; null on failure. */
adb_record_t* adb_stub_call(const adb_service_t* service, unsigned op, axis2_stub_t* stub,
                            const axutil_env_t* env, adb_record_t* request);
/* The same without waiting: complete or on_error runs later, on another thread. */
void adb_stub_start(const adb_service_t* service, unsigned op, axis2_stub_t* stub,
                    const axutil_env_t* env, adb_record_t* request, void* user_data,
                    adb_complete_t complete, adb_function_t on_complete, adb_error_t on_error);

#define ADB_DECLARE_RECORD(R)                                                             \
  extern const adb_type_t adb_type_##R;                                                   \
  adb_##R##_t* AXIS2_CALL adb_##R##_create(const axutil_env_t* env);                      \
  axis2_status_t AXIS2_CALL adb_##R##_free(adb_##R##_t* record, const axutil_env_t* env); \
  axiom_node_t* AXIS2_CALL adb_##R##_serialize(                                           \
      adb_##R##_t* record, const axutil_env_t* env, axiom_node_t* parent,                 \
      axiom_element_t* parent_element, int parent_tag_closed, axutil_hash_t* namespaces,  \
      int* next_ns_index);                                                                \
  axis2_status_t AXIS2_CALL adb_##R##_deserialize(                                        \
      adb_##R##_t* record, const axutil_env_t* env, axiom_node_t** dp_parent,             \
      axis2_bool_t* dp_is_early_node_valid, axis2_bool_t dont_care_minoccurs);

#define ADB_DEFINE_RECORD(R)                                                               \
  adb_##R##_t* AXIS2_CALL adb_##R##_create(const axutil_env_t* env) {                      \
    return (adb_##R##_t*)adb_create(&adb_type_##R, env);                                   \
  }                                                                                        \
  axis2_status_t AXIS2_CALL adb_##R##_free(adb_##R##_t* record, const axutil_env_t* env) { \
    return adb_free((adb_record_t*)record, env);                                           \
  }                                                                                        \
  axiom_node_t* AXIS2_CALL adb_##R##_serialize(                                            \
      adb_##R##_t* record, const axutil_env_t* env, axiom_node_t* parent,                  \
      axiom_element_t* parent_element, int parent_tag_closed, axutil_hash_t* namespaces,   \
      int* next_ns_index) {                                                                \
    (void)parent_element;                                                                  \
    (void)parent_tag_closed;                                                               \
    (void)namespaces;                                                                      \
    (void)next_ns_index;                                                                   \
    return adb_serialize((adb_record_t*)record, env, parent);                              \
  }                                                                                        \
  axis2_status_t AXIS2_CALL adb_##R##_deserialize(                                         \
      adb_##R##_t* record, const axutil_env_t* env, axiom_node_t** dp_parent,              \
      axis2_bool_t* dp_is_early_node_valid, axis2_bool_t dont_care_minoccurs) {            \
    (void)dp_is_early_node_valid;                                                          \
    (void)dont_care_minoccurs;                                                             \
    return adb_deserialize((adb_record_t*)record, env, dp_parent);                         \
  }

/* N: position from 1. T: the type that is got; C: the type that is set; M: the value's member. */
#define ADB_DECLARE_FIELD(R, N, F, T, C)                                                        \
  T AXIS2_CALL adb_##R##_get_##F(adb_##R##_t* record, const axutil_env_t* env);                 \
  T AXIS2_CALL adb_##R##_get_property##N(adb_##R##_t* record, const axutil_env_t* env);         \
  axis2_status_t AXIS2_CALL adb_##R##_set_##F(adb_##R##_t* record, const axutil_env_t* env,     \
                                              C value);                                         \
  axis2_status_t AXIS2_CALL adb_##R##_reset_##F(adb_##R##_t* record, const axutil_env_t* env);  \
  axis2_bool_t AXIS2_CALL adb_##R##_is_##F##_nil(adb_##R##_t* record, const axutil_env_t* env); \
  axis2_status_t AXIS2_CALL adb_##R##_set_##F##_nil(adb_##R##_t* record, const axutil_env_t* env);

#define ADB_DEFINE_FIELD(R, N, F, T, C, M)                                                       \
  T AXIS2_CALL adb_##R##_get_##F(adb_##R##_t* record, const axutil_env_t* env) {                 \
    return (T)adb_get((adb_record_t*)record, env, (N)-1).M;                                      \
  }                                                                                              \
  T AXIS2_CALL adb_##R##_get_property##N(adb_##R##_t* record, const axutil_env_t* env) {         \
    return adb_##R##_get_##F(record, env);                                                       \
  }                                                                                              \
  axis2_status_t AXIS2_CALL adb_##R##_set_##F(adb_##R##_t* record, const axutil_env_t* env,      \
                                              C value) {                                         \
    adb_value_t v = {0};                                                                         \
    v.M = (T)value;                                                                              \
    return adb_set((adb_record_t*)record, env, (N)-1, v);                                        \
  }                                                                                              \
  axis2_status_t AXIS2_CALL adb_##R##_reset_##F(adb_##R##_t* record, const axutil_env_t* env) {  \
    return adb_reset((adb_record_t*)record, env, (N)-1);                                         \
  }                                                                                              \
  axis2_bool_t AXIS2_CALL adb_##R##_is_##F##_nil(adb_##R##_t* record, const axutil_env_t* env) { \
    return adb_is_nil((adb_record_t*)record, env, (N)-1);                                        \
  }                                                                                              \
  axis2_status_t AXIS2_CALL adb_##R##_set_##F##_nil(adb_##R##_t* record,                         \
                                                    const axutil_env_t* env) {                   \
    return adb_set_nil((adb_record_t*)record, env, (N)-1);                                       \
  }

#define ADB_DECLARE_LIST(R, F, T, C)                                                              \
  axis2_status_t AXIS2_CALL adb_##R##_add_##F(adb_##R##_t* record, const axutil_env_t* env,       \
                                              C item);                                            \
  int AXIS2_CALL adb_##R##_sizeof_##F(adb_##R##_t* record, const axutil_env_t* env);              \
  T AXIS2_CALL adb_##R##_get_##F##_at(adb_##R##_t* record, const axutil_env_t* env, int i);       \
  axis2_status_t AXIS2_CALL adb_##R##_set_##F##_at(adb_##R##_t* record, const axutil_env_t* env,  \
                                                   int i, C item);                                \
  axis2_bool_t AXIS2_CALL adb_##R##_is_##F##_nil_at(adb_##R##_t* record, const axutil_env_t* env, \
                                                    int i);                                       \
  axis2_status_t AXIS2_CALL adb_##R##_set_##F##_nil_at(adb_##R##_t* record,                       \
                                                       const axutil_env_t* env, int i);

#define ADB_DEFINE_LIST(R, N, F, T, C)                                                            \
  axis2_status_t AXIS2_CALL adb_##R##_add_##F(adb_##R##_t* record, const axutil_env_t* env,       \
                                              C item) {                                           \
    return adb_add((adb_record_t*)record, env, (N)-1, (void*)item);                               \
  }                                                                                               \
  int AXIS2_CALL adb_##R##_sizeof_##F(adb_##R##_t* record, const axutil_env_t* env) {             \
    return adb_sizeof((adb_record_t*)record, env, (N)-1);                                         \
  }                                                                                               \
  T AXIS2_CALL adb_##R##_get_##F##_at(adb_##R##_t* record, const axutil_env_t* env, int i) {      \
    return (T)adb_get_at((adb_record_t*)record, env, (N)-1, i);                                   \
  }                                                                                               \
  axis2_status_t AXIS2_CALL adb_##R##_set_##F##_at(adb_##R##_t* record, const axutil_env_t* env,  \
                                                   int i, C item) {                               \
    return adb_set_at((adb_record_t*)record, env, (N)-1, i, (void*)item);                         \
  }                                                                                               \
  axis2_bool_t AXIS2_CALL adb_##R##_is_##F##_nil_at(adb_##R##_t* record, const axutil_env_t* env, \
                                                    int i) {                                      \
    return adb_is_nil_at((adb_record_t*)record, env, (N)-1, i);                                   \
  }                                                                                               \
  axis2_status_t AXIS2_CALL adb_##R##_set_##F##_nil_at(adb_##R##_t* record,                       \
                                                       const axutil_env_t* env, int i) {          \
    return adb_set_nil_at((adb_record_t*)record, env, (N)-1, i);                                  \
  }

/* S: service, X: operation, AT: its position in the service's table. */
#define ADB_DECLARE_OPERATION(S, X)                                                              \
  adb_##X##Response_t* AXIS2_CALL axis2_stub_op_##S##_##X(                                       \
      axis2_stub_t* stub, const axutil_env_t* env, adb_##X##_t* request);                        \
  void AXIS2_CALL axis2_stub_start_op_##S##_##X(                                                 \
      axis2_stub_t* stub, const axutil_env_t* env, adb_##X##_t* request, void* user_data,        \
      axis2_status_t(AXIS2_CALL* on_complete)(const axutil_env_t*, adb_##X##Response_t*, void*), \
      axis2_status_t(AXIS2_CALL* on_error)(const axutil_env_t*, int exception, void*));

#define ADB_DEFINE_OPERATION(S, X, AT)                                                            \
  adb_##X##Response_t* AXIS2_CALL axis2_stub_op_##S##_##X(                                        \
      axis2_stub_t* stub, const axutil_env_t* env, adb_##X##_t* request) {                        \
    return (adb_##X##Response_t*)adb_stub_call(&service, AT, stub, env, (adb_record_t*)request);  \
  }                                                                                               \
  typedef axis2_status_t(AXIS2_CALL* complete_##X##_t)(const axutil_env_t*, adb_##X##Response_t*, \
                                                       void*);                                    \
  static axis2_status_t complete_##X(adb_function_t f, const axutil_env_t* env,                   \
                                     adb_record_t* response, void* user_data) {                   \
    return ((complete_##X##_t)f)(env, (adb_##X##Response_t*)response, user_data);                 \
  }                                                                                               \
  void AXIS2_CALL axis2_stub_start_op_##S##_##X(                                                  \
      axis2_stub_t* stub, const axutil_env_t* env, adb_##X##_t* request, void* user_data,         \
      axis2_status_t(AXIS2_CALL* on_complete)(const axutil_env_t*, adb_##X##Response_t*, void*),  \
      axis2_status_t(AXIS2_CALL* on_error)(const axutil_env_t*, int exception, void*)) {          \
    adb_stub_start(&service, AT, stub, env, (adb_record_t*)request, user_data, complete_##X,      \
                   (adb_function_t)on_complete, on_error);                                        \
  }

#ifdef __cplusplus
}
#endif
#endif
