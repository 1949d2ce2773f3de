/* C functions of the property service, used by code that has no AIMClient at
 * hand. They share the store of AIMClient (same files, same rules) and are
 * thread-safe. Results: non-zero (true) on success, except
 * aim_function_execute_with_timeout_setting, which returns 0 on success. */
#pragma once

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

int aim_config_get_int(const char* key, int* value);
int aim_config_get_bool(const char* key, bool* value);
/* Writes at most 256 bytes (255 characters and the terminator). */
int aim_config_get_str(const char* key, char* buffer);
/* Bounded form: writes at most `size` bytes, always terminated when size > 0. */
int aim_config_get_str_n(const char* key, char* buffer, int size);
int aim_config_set_int(const char* key, int value, int persist);
int aim_config_set_bool(const char* key, bool value, int persist);
int aim_config_set_str(const char* key, const char* value, int persist);

/* Runs a named platform function; *length holds the input length on the call
 * and the output length on return. The timeout is in milliseconds. */
int aim_function_execute_with_timeout_setting(const char* function, int* length, const void* input, int outputCapacity,
                                              void* output, int timeout);

/* Raises an event of `kind` with `length` payload bytes; non-zero on success. */
int aim_event_type_occurred(int kind, const char* event, int length, const char* data);

#ifdef __cplusplus
}
#endif
