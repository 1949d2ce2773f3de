// JNLPDataAgent: the KVM console launch document (live console, or the player
// of a recorded boot or crash capture) and temporary console credentials for
// callers that build the launch themselves. One per connection, created and
// owned by its GUIDataHandler; used on that connection's thread only.
#pragma once

#include <string>

#include "DataAgent.h"

class AIMClient;

class JNLPDataAgent : public DataAgent {
public:
    // Privilege bits of the connection's mask that this agent tests.
    static const int kPrivTempTokens = 0x08;
    static const int kPrivKvm = 0x20;
    static const int kPrivVirtualMedia = 0x40;

    // Room of the formatted values, the credentials and the capture file name.
    static const int kValueSize = 256;
    static const int kCredentialSize = 32;
    static const int kFileNameSize = 256;

    explicit JNLPDataAgent(DataHandler& handler);
    ~JNLPDataAgent() override;

    int initialize() override;
    int preProcessGet(std::string& name, std::string& text) override;
    int processGet() override;
    int postProcessGet(ConnectionHandler& connection) override;
    int preProcessSet(std::string& name, TokenMap& arguments) override;
    int processSet() override;
    int postProcessSet(ConnectionHandler& connection, TokenMap& arguments) override;

private:
    AIMClient& aim();
    int privileges();
    bool kvmEnabled();

    // The three argument parsers; each reads the list inside the first
    // parentheses of `text`, fields separated by '@'.
    void retrieveViewerParams(const std::string& text);
    void retrieveKvmParams(const std::string& text);
    void retrieveComputeParams(const std::string& text);

    void writeTokens(ConnectionHandler& connection);
    void writeDocument(ConnectionHandler& connection);
    // The first file of a capture directory ("" when there is none).
    std::string captureFileName(const char* directory);

    bool m_noVmPrivilege;
    bool m_bootCapture;
    bool m_crashCapture;
    bool m_ipv6;
    std::string m_ipaddress;
    int m_httpsPort;
    int m_kvmPort;
    int m_aimSessionId;
    int m_aimUserPriv;
    int m_connPort;
    std::string m_cacheVar;
    std::string m_tmpUserName;
    std::string m_tmpPassword;
    std::string m_sessionId;
    bool m_genComputeTokens;
    bool m_kvmJnlp;
};
