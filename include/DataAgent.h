// DataAgent: abstract base of every agent. Request processing drives an agent
// through seven operations (initialize, the three get and the three set
// steps); 1 means success. Agents belong to one connection and run on its
// thread; their DataHandler creates and deletes them. Also home of the
// process-wide hardware platform identity (getPlatform).
#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstdio>
#include <string>

#include "AComponentLog.h"
#include "TokenMap.h"

class ConnectionHandler;
class DataHandler;
class GUIDataSocket;

// The hardware platform. The numbers are fixed: the property service and
// per-platform tables compare them, so the gaps stay.
enum PLATFORM {
    PLATFORM_UNKNOWN = 0,
    PLATFORM_DRAVON = 1,
    PLATFORM_DRAVON_2U = 2,
    PLATFORM_ZENTH = 3,
    PLATFORM_KESTIN = 4,
    PLATFORM_MORLAC = 5,
    PLATFORM_PALLIX1 = 6,
    PLATFORM_PALLIX2 = 7,
    PLATFORM_RUSKEL = 8,
    PLATFORM_RUSKEL_RISER = 9,
    PLATFORM_TOVREL = 10,
    PLATFORM_QUENTAR = 11,
    PLATFORM_VORSHA1 = 12,
    PLATFORM_VORSHA2 = 13,
    PLATFORM_NIMBREL1 = 15,
    PLATFORM_ONDRIK = 17,
    PLATFORM_FENLOW = 18,
    PLATFORM_CASTREL = 20,
    PLATFORM_GREFF1 = 21,
    PLATFORM_GREFF2 = 22,
    PLATFORM_LURVEN = 24,
    PLATFORM_WESCAL = 25,
};

class DataAgent {
public:
    DataAgent(const char* name, DataHandler& handler);
    virtual ~DataAgent();
    DataAgent(const DataAgent&) = delete;
    DataAgent& operator=(const DataAgent&) = delete;

    virtual int initialize() = 0;
    virtual int preProcessGet(std::string& name, std::string& extra) = 0;
    virtual int processGet() = 0;
    virtual int postProcessGet(ConnectionHandler& connection) = 0;
    virtual int preProcessSet(std::string& name, TokenMap& arguments) = 0;
    virtual int processSet() = 0;
    virtual int postProcessSet(ConnectionHandler& connection, TokenMap& arguments) = 0;

    const char* getName() const { return m_name; }
    int getStatus() const { return m_status; }

    // Values of a set request's arguments (the first argument of `name`).
    // They never throw for missing or malformed arguments: the result says
    // whether a value was taken (1) or not (0).
    int setString(TokenMap& map, char* buffer, const char* name, int size, bool trim);
    void setString(const std::string& value, char* buffer, int size);
    int setInt(TokenMap& map, int& value, const char* name);
    int setBoolean(TokenMap& map, signed char& value, const char* name);
    int setByte(TokenMap& map, signed char& value, const char* name);
    int setuByte(TokenMap& map, unsigned char& value, const char* name);
    int lookupString(TokenMap& map, std::string& name, std::string& value);
    // Strict decimal: digits only (the empty text is 0); 1 when stored.
    int parseInt(const std::string& text, int& value);

    // One value from the controller's property tool ("sender"); "" when the
    // tool cannot run or prints nothing. Blocks while the tool runs.
    std::string getValue(const char* name);
    // Host power state from getValue("pwState"); unreadable counts as on.
    bool powerOff();
    bool powerOn();
    // Blocks the calling thread for the given time; returns 0.
    int threadSleep(int seconds, int milliseconds);

    // --- controller tools and their YAML-like output ---
    // Tools print documents ("---" ... "...") of "key: value" lines. Commands
    // are split as the shell would split them and run without a shell
    // (ToolRun: grep and awk stages run in the server), with default signal
    // dispositions, standard input from /dev/null and no inherited
    // descriptors; a line ToolRun refuses does not run (-1). The caller
    // makes sure that any user text inside `command` was checked or escaped
    // (one word of the line, never more). When prepared
    // text (m_backendText) is set, no command runs: the next query reads the
    // text instead and then releases it.

    // Runs `command` and writes its output as XML elements to `socket`
    // (xmlizeExt when `extended`, else xmlize). 0, or -1 when the command
    // cannot run, exits non-zero or the conversion fails; what was written
    // stays written. `agentName` (default "DataAgent") names the log lines.
    int queryBackend(const char* command, GUIDataSocket& socket, const char* tag, bool& hasError,
                     std::string& errorText, const char* pcCompStr, const char* agentName = nullptr,
                     bool wrapList = false, bool extended = false);
    // Converts `input` (or, when it is null, the prepared text) line by line:
    // lines of at most 355 characters, elements cut at 355 characters,
    // "order: N.0" as "order: N", error lines reported through `hasError` and
    // `errorText` unless their text is `pcCompStr`; with `wrapList` the whole
    // output goes inside "<tagList>". -1 when there is nothing to read.
    int xmlize(FILE* input, GUIDataSocket& socket, const char* tag, bool& hasError, std::string& errorText,
               const char* pcCompStr, bool wrapList);
    // The same for tools with long lines: lines are kept whole (up to
    // kMaxExtendedLine bytes), elements are never cut, error and order lines
    // are plain content. -1 when there is nothing to read, for a line ending
    // in a colon (no element after it) and for a line too long to hold.
    int xmlizeExt(FILE* input, GUIDataSocket& socket, const char* tag, bool wrapDocuments);
    // Runs `command` and appends all its output to `output`. The exit status
    // (128 + the signal number when it was killed), or -1 when it cannot run.
    int invokeBackend(const char* command, std::string& output, const char* agentName = nullptr);

    static const int kXmlizeBufferSize = 356;         // xmlize's line and element buffers
    static const int kExtendedChunk = 511;            // xmlizeExt reads this much at a time
    static const int kMaxExtendedLine = 1024 * 1024;  // longest line xmlizeExt holds

    // --- user text bound for command lines (see docs/security.md) ---
    // Insert a backslash before every character of ";|\"$!@#%^*-_+"
    // (passwords) or of that set and "()`>?<[]&}{" (shell text). Neither set
    // holds line ends, blanks, single quotes or backslashes: escaped text
    // still has to pass system_check_user_input before it stands in a line.
    static void escapePassword(std::string& text);
    static void escapeShellMetaChar(std::string& text);
    // For logs: false when `request` holds no call with a password argument
    // (adapterConfig, adapterUpdate, inventoryUpload); otherwise true with
    // `masked` a copy whose password arguments read "********".
    static bool maskPasswords(const char* request, std::string& masked);
    // Removes one leading and then one trailing double quote, where present.
    static void removeQuotesInString(std::string& text);
    // Checks a file name: at most 254 characters of A-Z a-z 0-9 - _ . /,
    // ending in `extension` (given with its full stop), a last component
    // that does not begin with '-' and has no other full stop. 0 accepted,
    // -1 invalid, -2 wrong extension; on failure `*errorText` points to a
    // constant message (never to be released). Prints its verdict.
    static int validateFileName(const char* fileName, const char* extension, char** errorText);
    // Dotted text to a number, first part in the top byte; parts are read as
    // strtoul with base 0 does, with no check of count or range. Overwrites
    // the full stops of `text` with terminators.
    static int ipv4_conv(char* text);
    // inet_pton for IPv6: 1 for a valid address, else 0.
    static int ipv6_conv(const char* text, in6_addr* address);

    // The platform this controller sits in, read from "/etc/product" (and the
    // chassis and riser pins) on first demand and cached; an unknown product
    // is looked up again at the next call. Any thread: the cache is atomic
    // (every thread that fills it stores the same value, but unsynchronised
    // stores would still be a data race).
    static PLATFORM getPlatform();
    // Forgets the cached platform (tests switch platform roots).
    static void resetPlatformCache() { platform_.store(0); }

protected:
    const char* m_name;
    DataHandler* m_dataHandler;
    AComponentLog m_log;
    int m_status;
    char* m_backendText;

private:
    static std::atomic<int> platform_;
};
