// ConnectionHandler: serves one client connection on its own thread: reads a
// framed request (legacy or next-generation layout), processes it through the
// connection's agents and flushes the reply, until the first read failure;
// then it deletes itself. Everything here is used by that one thread only
// (construction happens on the accept loop before the thread starts). Owns
// its socket copy, request buffers, tokenizer and data handlers.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "AComponentLog.h"
#include "AThread.h"
#include "GUIDataSocket.h"
#include "RequestToken.h"
#include "RequestTokenizer.h"
#include "TokenMap.h"

class ConnectionManager;
class DataAgent;
class DataHandler;
class GUIDataHandler;
class GUIDataServer;

// The decoded JSON header of a next-generation request. Strings are heap
// copies (or null) that the caller releases with freeGDSProtoHeaderFields.
struct gds_params {
    int privilege;
    char* magic;
    char* command;
    char* username;
    char* interface;
};

// Decodes the JSON header: 0 on success, -1 when `json` is not JSON (or a
// pointer is null). Keys of the wrong type count as absent.
int getGDSProtoHeaderFields(char* json, gds_params* out);
void freeGDSProtoHeaderFields(gds_params* params);

class ConnectionHandler : public AThread {
public:
    static const int kBufferSize = 8096;  // the longest request text accepted
    static const int kUserNameSize = 128;
    static const int kInterfaceNameSize = 32;
    // Bytes read ahead from the connection: a small frame arrives in one read.
    static const int kInputSize = 1024;
    // Log lines one request may write for its items (the rest are counted).
    static const int kItemLogLines = 32;
    // The request text's buffer starts this small and grows to the longest
    // text the connection has sent (at most kBufferSize), so an idle
    // connection does not hold 8 KiB it never used.
    static const int kInitialRequestSize = 256;
    // A connection that has waited this long for its next request hands
    // back what its requests grew (releaseIdle): a busy connection never
    // pays for it, an idle one costs what a new one does.
    static const int kIdleReleaseMs = 100;

    ConnectionHandler(ConnectionManager& manager, GUIDataSocket& socket, bool nxtGenPort);
    ~ConnectionHandler() override;

    void setLog(ALog& log);
    // Starts the connection's thread; false when it could not be created.
    bool startProcessing();
    // On a stack of ConnectionThreads (its stacks go back when threads end).
    bool start() override;
    // The request loop; deletes this handler when the connection ends.
    void run() override;

    char* nextRequest();
    char* inReqLegacySrvPort();
    char* inReqNxtGenSrvPort();
    void socketReadFailed(const char* what);
    // A refused frame (bad length, no memory, and every read failure):
    // closes the connection and drops whatever was read ahead, so nothing
    // after it is parsed or carried out.
    void refuseFrame();
    // Closes the connection (also from the accept loop when the handler's
    // thread could not start).
    void closeSocket();

    GUIDataSocket& getSocket() { return m_socket; }
    ConnectionManager& getConnectionManager() { return m_manager; }
    GUIDataServer& getServer();
    int getPrivileges() const { return privileges; }
    int getRawReply() const { return rawReply; }
    char* getAuditUserName() { return auditUserName; }
    char* getAuditInterfaceName() { return auditInterfaceName; }
    const char* getRequest() const { return requestBuffer; }
    std::vector<DataHandler*>& getDataHandlers() { return m_dataHandlers; }
    AComponentLog& getLog() { return m_log; }

    // Request processing.
    DataAgent* getDataAgentFor(std::string& property);
    int processRequest();
    std::string parseForSet(std::vector<RequestToken>& tokens, std::vector<std::string>& names, TokenMap& arguments);
    void parseForGet(std::string& request, std::vector<std::string>& items);
    void parseForArgs(std::string& item, std::string& name, std::string& extra);
    void parsePropertyTokens(const std::string& text, std::vector<std::string>& out);

private:
    void releaseAll();
    // Frame reading through the read-ahead buffer. Once a frame's first byte
    // has arrived, the rest must arrive within the manager's frame deadline.
    // 0 on success, -1 on failure (errno ETIMEDOUT after the deadline).
    int readFrameBytes(unsigned char* data, int length);
    int readFrameInt(int& value);
    void endFrame();
    // Between requests, after kIdleReleaseMs without a byte: frees the
    // read-ahead, reply and scratch buffers and a grown request buffer, and
    // returns the stack pages below the waiting frame. The next read waits
    // for the socket to be readable before it takes a buffer again.
    void releaseIdle();
    // Strips trailing line ends (byte 10) from the request text.
    void trimLineEnds();
    void splitPrivilegeWord(int word);
    // Makes the request buffer hold `size` bytes (size <= bufferSize).
    void reserveRequest(int size);
    // Launch-document and capture-file requests: one agent writes a raw document.
    void processDocument(std::string& name, std::string& extra);
    // Writes the reply strings for an exception; `message` is formatted into
    // a 1023-byte buffer.
    void writeErrorReply(const char* format, const char* message);

    ConnectionManager& m_manager;
    GUIDataSocket m_socket;
    bool nxtGenPort;
    bool stopRequested;
    int bufferSize;  // the longest request text accepted, plus its terminator
    char* requestBuffer;
    int requestCapacity = 0;
    int privileges;
    char* auditUserName;
    char* auditInterfaceName;
    int rawReply;
    AComponentLog m_log;
    std::vector<DataHandler*> m_dataHandlers;
    int requestCount;
    GUIDataHandler* m_guiDataHandler;
    RequestTokenizer m_tokenizer;
    unsigned char* m_input = nullptr;
    int m_inputStart = 0;
    int m_inputEnd = 0;
    int m_frameBytes = 0;       // bytes of the current frame read so far
    bool m_cleanClose = false;  // the peer closed between frames
};
