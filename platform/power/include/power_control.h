/* Host power control: switches the host's power. Thread-safe.
 *
 * The stand-in keeps the host power state where the data server reads it:
 * the property "pwState" of the simulated property service
 * ("/var/aim/props/pwState" below the platform root, 1 on, 0 off), written
 * atomically. Every call is appended to "/var/power/calls"; the fault file
 * "/var/power/faults/SetPowerState" makes the call fail with the number
 * written inside (-1 when there is none) without changing the state. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define POWER_STATE_OFF 0
#define POWER_STATE_ON 1

/* Switches the host off (POWER_STATE_OFF) or on (POWER_STATE_ON); `count`
 * is the number of requests (the data server sends 1). 0 on success. */
int SetPowerState(int count, int state);

#ifdef __cplusplus
}
#endif
