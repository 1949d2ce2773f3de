// biosTokenGatherer: the thread that keeps the BIOS token properties in step
// with the host BIOS. GUIDataServer::start runs biosTokenGatherer(nullptr)
// once on a detached thread; it owns the BIOSToken store from then on.
// Tests drive the same steps with biosTokenGathererStart/Poll/Run.
#pragma once

// Thread entry: start, then poll for the life of the process. Never returns;
// when the store cannot be initialised the process ends with that status.
void* biosTokenGatherer(void* arg);

// Start-up steps: initialise the store and its files, apply the BIOS's
// values, send the controller's values when "BiosTokenDataAvailable" is set,
// write the token lists. 0, or the store's failure value (nothing else done).
int biosTokenGathererStart(void);

// One poll: when the BIOS has written region 3 since the last poll, applies
// its values. 1 when a change was seen (poll again at once), 0 otherwise.
int biosTokenGathererPoll(void);

// Start, then `maxPolls` polls (forever when negative), sleeping the poll
// interval after each poll that saw no change (not after the last one).
// Returns biosTokenGathererStart's failure value, or 0.
int biosTokenGathererRun(int maxPolls);

// Seconds between polls: 60, or GDS_BIOS_POLL_SECONDS when it holds a whole
// number from 1 to 60 (development and tests).
int biosTokenPollSeconds(void);
