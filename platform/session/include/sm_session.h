/* Session manager of the controller: temporary credentials with which a
 * console client logs in on behalf of an existing web session. The stand-in
 * draws them from the system's random source and appends every issue to
 * "/var/session/credentials" under the platform root; the fault file
 * "/var/session/faults/get_temp_credentials" makes the call fail (see
 * docs/console-and-services.md). Thread-safe and safe between processes. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* Size of each credential buffer, terminator included. */
#define SM_SESSION_CREDENTIAL_SIZE 32

/* Issues temporary credentials of `kind` for the web session `aim_session_id`
 * holding user privilege `aim_user_priv`. On success writes NUL-terminated
 * texts of at most SM_SESSION_CREDENTIAL_SIZE - 1 characters into `user` and
 * `password` (each at least SM_SESSION_CREDENTIAL_SIZE bytes) and returns 0;
 * otherwise returns an error number and leaves both buffers unchanged. */
int sm_session_get_temp_credentials(int kind, char* user, char* password, int aim_session_id, int aim_user_priv);

#ifdef __cplusplus
}
#endif
