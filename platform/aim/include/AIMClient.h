// AIMClient: the client of the controller's property service (AIM).
// Typed properties (int, bool, str, crypt), named platform functions and
// events. One client is shared by every connection thread of the data server:
// every operation is thread-safe, and a second process (aimctl, a test) may use
// the same store at the same time. The stand-in keeps the store as files
// under "/var/aim" below the platform root (see docs/simulator.md).
#pragma once

#include "AComponentLog.h"
#include "ALog.h"

class AIMClient {
public:
    // Longest text value, terminator excluded. Text getters write at most
    // kMaxValue + 1 bytes; longer values are refused by the setters.
    static const int kMaxValue = 255;

    AIMClient(const char* clientName, int clientId);
    virtual ~AIMClient();
    AIMClient(const AIMClient&) = delete;
    AIMClient& operator=(const AIMClient&) = delete;

    // Connects to the store (creates its folders when missing). False when the
    // store cannot be used, or the fault file "/var/aim/faults/initialize" exists.
    bool initialize();
    void setLog(AComponentLog& log);
    void setLog(ALog& log);

    // Getters return true when the property has a value of a readable type.
    // int: stored int, or bool as 0/1. bool: stored bool, or int (non-zero).
    // text: any type but crypt, as text. crypt: crypt properties only.
    bool getProperty(const char* name, int& value);
    bool getProperty(const char* name, bool& value);
    bool getProperty(const char* name, char* value);  // at most kMaxValue + 1 bytes
    bool getPropertyCrypt(const char* name, char* value);

    // Setters store the value with its type, replacing any earlier value and
    // type; the write is atomic on disk. `persist` is accepted for the
    // controller's API (every value persists here). False on failure.
    bool setProperty(const char* name, int value, bool persist);
    bool setProperty(const char* name, bool value, bool persist);
    bool setProperty(const char* name, char* value, bool persist);
    bool setProperty(const char* name, const char* value, bool persist);
    bool setPropertyCrypt(const char* name, char* value, bool persist);

    // Runs the named platform function (its result comes from the fixture
    // "/var/aim/functions/<name>"); the call is recorded. Returns 0 on success
    // with min(output size, outCapacity) bytes in `out` and their count in
    // *outLength (when outLength is not null); non-zero on failure.
    int callFunction(const char* name, int inLength, const void* in, int outCapacity, int* outLength, void* out);

    // Raises an event with a payload; recorded in order. True on success.
    bool notifyEvent(const char* event, int length, void* data);

private:
    const char* m_clientName;
    int m_clientId;
    bool m_initialized = false;
    AComponentLog m_log;
};
