/* The last error of an environment: a number, a status and, optionally, a text of its own. */
#ifndef AXUTIL_ERROR_H
#define AXUTIL_ERROR_H

#include <axutil_utils_defines.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The numbers that this library sets. Code must use the names: the values are not Axis2/C's. */
enum axutil_error_codes {
  AXIS2_ERROR_NONE = 0,
  AXIS2_ERROR_NO_MEMORY,
  AXIS2_ERROR_INVALID_NULL_PARAM,
  AXIS2_ERROR_INDEX_OUT_OF_BOUNDS,
  AXIS2_ERROR_INVALID_ADDRESS,
  AXIS2_ERROR_INVALID_STATE_SVC,
  AXIS2_ERROR_DATA_ELEMENT_IS_NULL,
  AXIS2_ERROR_HTTP_CLIENT_TRANSPORT_ERROR,
  AXIS2_ERROR_OM_OUTPUT_ERROR,
  AXIS2_ERROR_XML_PARSER_INVALID_MEM_TYPE,
  AXIS2_ERROR_INVALID_SOAP_ENVELOPE_STATE,
  AXIS2_ERROR_SOAP_FAULT_ELEMENT_NULL,
  AXIS2_ERROR_LAST
};
typedef enum axutil_error_codes axutil_error_codes_t;

typedef struct axutil_error {
  struct axutil_allocator* allocator;
  int error_number;
  int status_code;
  axis2_char_t* message; /* more exact than the number's text, or null; owned */
} axutil_error_t;

/* The text set last, else the number's text; never null; valid until the next error. */
AXIS2_EXTERN const axis2_char_t* AXIS2_CALL axutil_error_get_message(const axutil_error_t* error);

/* A new number forgets the text of the previous error. */
AXIS2_EXTERN axis2_status_t AXIS2_CALL axutil_error_set_error_number(axutil_error_t* error,
                                                                     axutil_error_codes_t number);
AXIS2_EXTERN axis2_status_t AXIS2_CALL axutil_error_set_status_code(axutil_error_t* error,
                                                                    axis2_status_codes_t status);
AXIS2_EXTERN axis2_status_t AXIS2_CALL axutil_error_get_status_code(axutil_error_t* error);

/* Copies the text. Axis2/C keeps the pointer: a caller that shall work with both keeps it alive. */
AXIS2_EXTERN axis2_status_t AXIS2_CALL axutil_error_set_error_message(axutil_error_t* error,
                                                                      axis2_char_t* message);

#define AXIS2_ERROR_GET_MESSAGE(error) axutil_error_get_message(error)
#define AXIS2_ERROR_SET_MESSAGE(error, message) axutil_error_set_error_message(error, message)
#define AXIS2_ERROR_SET_ERROR_NUMBER(error, number) axutil_error_set_error_number(error, number)
#define AXIS2_ERROR_SET_STATUS_CODE(error, status) axutil_error_set_status_code(error, status)
#define AXIS2_ERROR_GET_STATUS_CODE(error) axutil_error_get_status_code(error)
#define AXIS2_ERROR_SET(error, number, status)   \
  {                                              \
    AXIS2_ERROR_SET_ERROR_NUMBER(error, number); \
    AXIS2_ERROR_SET_STATUS_CODE(error, status);  \
  }

#ifdef __cplusplus
}
#endif
#endif
