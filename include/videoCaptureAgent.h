// videoCaptureAgent: the host's boot and crash video captures: reports their
// switches, recording and its time, stores the switches, triggers a crash
// capture and deletes the recorded video once both captures are off. One per
// connection, created and owned by its GUIDataHandler; that connection's
// thread only.
#pragma once

#include <string>

#include "DataAgent.h"

class AIMClient;

class videoCaptureAgent : public DataAgent {
public:
    static const int kPrivConfig = 0x02;
    static const int kBootKind = 1;
    static const int kCrashKind = 2;

    explicit videoCaptureAgent(DataHandler& handler);
    ~videoCaptureAgent() override;

    int initialize() override;
    int preProcessGet(std::string& name, std::string& extra) override;
    int processGet() override;
    int postProcessGet(ConnectionHandler& connection) override;
    int preProcessSet(std::string& name, TokenMap& tokens) override;
    int processSet() override;
    int postProcessSet(ConnectionHandler& connection, TokenMap& arguments) override;

    // Status-change time of a capture file (kind 1 boot, 2 crash) as ctime
    // text without the line end, or "NA", in `out` (100 bytes). 0, or -1 for
    // an unknown kind.
    int getFileCreationTime(int kind, char* fileName, char* out);
    // Raises the property-service event with a time-stamped data text:
    // 0 on success, 1 on failure.
    int sendAimEvent(const char* event);

private:
    AIMClient& aim();
    // Copies the third entry of a capture directory (or its last, when it
    // holds fewer) into `file` (64 bytes); leaves it alone when the folder
    // cannot be opened.
    void scanDirectory(const char* directory, char* file);
    // Reads an argument as 0 or 1 into `value`; false when it is neither,
    // with `bad` the offending number (-1 when it is not a number).
    static bool readSwitch(const RequestToken& token, int& value, int& bad);
    bool setAim(const char* key, int value);

    bool m_bootGet;
    bool m_crashGet;
    bool m_bootSet;
    bool m_bootCaptureEnableSet;
    bool m_bootStopOnBiosPostSet;
    bool m_crashSet;
    bool m_crashTriggerSet;
    bool m_crashCaptureEnableSet;
    int m_bootCaptureEnable;
    int m_bootStopOnBiosPost;
    int m_crashCaptureEnable;
    int m_crashTrigger;
    char m_bootDir[256];
    char m_crashDir[256];
    char m_bootFile[64];
    char m_crashFile[64];
    char m_bootTime[100];
    char m_crashTime[100];
};
