/* The log of an environment: lines "[date] [level] file(line) text", one write a line. */
#ifndef AXUTIL_LOG_H
#define AXUTIL_LOG_H

#include <axutil_utils_defines.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum axutil_log_levels {
  AXIS2_LOG_LEVEL_CRITICAL = 0,
  AXIS2_LOG_LEVEL_ERROR,
  AXIS2_LOG_LEVEL_WARNING,
  AXIS2_LOG_LEVEL_INFO,
  AXIS2_LOG_LEVEL_DEBUG,
  AXIS2_LOG_LEVEL_USER,
  AXIS2_LOG_LEVEL_TRACE
} axutil_log_levels_t;

typedef struct axutil_log axutil_log_t;

#define AXIS2_LOG_SI __FILE__, __LINE__

/* Callable from several threads at once. A null log takes nothing. */
AXIS2_EXTERN void AXIS2_CALL axutil_log_impl_log_error(axutil_log_t* log, const axis2_char_t* file,
                                                       int line, const axis2_char_t* format, ...)
    __attribute__((format(printf, 4, 5)));
AXIS2_EXTERN void AXIS2_CALL axutil_log_impl_log_warning(axutil_log_t* log,
                                                         const axis2_char_t* file, int line,
                                                         const axis2_char_t* format, ...)
    __attribute__((format(printf, 4, 5)));
AXIS2_EXTERN void AXIS2_CALL axutil_log_impl_log_info(axutil_log_t* log, const axis2_char_t* format,
                                                      ...) __attribute__((format(printf, 2, 3)));

#define AXIS2_LOG_ERROR axutil_log_impl_log_error
#define AXIS2_LOG_WARNING axutil_log_impl_log_warning
#define AXIS2_LOG_INFO axutil_log_impl_log_info

#ifdef __cplusplus
}
#endif
#endif
