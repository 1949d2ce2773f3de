#include "ConnectionHandler.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <cjson/cJSON.h>

#include "ConnectionManager.h"
#include "ConnectionThreads.h"
#include "DataAgent.h"
#include "DataHandler.h"
#include "GUIDataHandler.h"
#include "HandlerFactory.h"
#include "ProcessingException.h"
#include "RequestFormatException.h"
#include "SecurityException.h"
#include "gds_debug_log.h"

namespace {
const char kMagic[] = "BEEF";

char* dupString(const char* s)
{
    return s != nullptr ? strdup(s) : nullptr;
}

// Copies at most size - 1 characters of `src` into a zeroed `dst`.
void copyName(char* dst, int size, const char* src)
{
    memset(dst, 0, static_cast<size_t>(size));
    if (src != nullptr) {
        strncpy(dst, src, static_cast<size_t>(size) - 1);
    }
}
}  // namespace

int getGDSProtoHeaderFields(char* json, gds_params* out)
{
    if (json == nullptr || out == nullptr) {
        return -1;
    }
    memset(out, 0, sizeof *out);
    cJSON* root = cJSON_Parse(json);
    if (root == nullptr) {
        return -1;
    }
    // The keys are matched as cJSON_GetObjectItem matches them, ignoring
    // case: web servers send "magic" as well as "Magic".
    cJSON* item = cJSON_GetObjectItem(root, "Magic");
    if (cJSON_IsString(item)) {
        out->magic = dupString(item->valuestring);
    }
    item = cJSON_GetObjectItem(root, "Privilege");
    if (cJSON_IsNumber(item)) {
        // valueint saturates doubles outside the int range; a privilege
        // word above 0x7FFFFFFF arrives as its unsigned value.
        double d = item->valuedouble;
        if (d >= 2147483648.0 && d <= 4294967295.0) {
            out->privilege = static_cast<int>(static_cast<unsigned int>(d));
        } else {
            out->privilege = item->valueint;
        }
    }
    item = cJSON_GetObjectItem(root, "Command");
    if (cJSON_IsString(item)) {
        out->command = dupString(item->valuestring);
    }
    item = cJSON_GetObjectItem(root, "Username");
    if (cJSON_IsString(item)) {
        out->username = dupString(item->valuestring);
    }
    item = cJSON_GetObjectItem(root, "Interface");
    if (cJSON_IsString(item)) {
        out->interface = dupString(item->valuestring);
    }
    cJSON_Delete(root);
    return 0;
}

void freeGDSProtoHeaderFields(gds_params* params)
{
    if (params == nullptr) {
        return;
    }
    free(params->magic);
    free(params->command);
    free(params->username);
    free(params->interface);
    memset(params, 0, sizeof *params);
}

ConnectionHandler::ConnectionHandler(ConnectionManager& manager, GUIDataSocket& socket, bool nxtGen)
    : m_manager(manager),
      m_socket(socket),
      nxtGenPort(nxtGen),
      stopRequested(false),
      bufferSize(kBufferSize),
      requestBuffer(nullptr),
      privileges(0),
      auditUserName(nullptr),
      auditInterfaceName(nullptr),
      rawReply(0),
      m_log("ConnectdonHandler"),
      requestCount(0),
      m_guiDataHandler(nullptr),
      m_tokenizer("(),=&:?")
{
    m_log.logTrace("Creating a new connection handler object.\n");
    // Any allocation may fail on a loaded controller: whatever was built is
    // released before the failure leaves the constructor.
    try {
        requestBuffer = new char[kInitialRequestSize];
        requestCapacity = kInitialRequestSize;
        requestBuffer[0] = '\0';
        auditUserName = new char[kUserNameSize]();
        auditInterfaceName = new char[kInterfaceNameSize]();
        // A new connection reads its first frame straight away (no wait for
        // readability first); it gives the buffer back if it stays idle.
        m_input = new unsigned char[kInputSize];
        m_guiDataHandler = new GUIDataHandler(*this);
        m_dataHandlers.push_back(m_guiDataHandler);
        m_log.logTrace("Initializing agents for new ConnectionHandler.\n");
        for (HandlerFactory* factory : manager.getHandlerFactoryList()) {
            DataHandler* handler = factory->createDataHandler(*this);
            if (handler != nullptr) {
                m_dataHandlers.push_back(handler);
            }
        }
        for (DataHandler* handler : m_dataHandlers) {
            handler->shareNames();
        }
    } catch (...) {
        releaseAll();
        throw;
    }
    m_manager.connectionStarted(this, m_socket.getDescriptor());
}

void ConnectionHandler::releaseAll()
{
    for (DataHandler* handler : m_dataHandlers) {
        delete handler;
    }
    m_dataHandlers.clear();
    m_guiDataHandler = nullptr;
    delete[] requestBuffer;
    delete[] auditUserName;
    delete[] auditInterfaceName;
    delete[] m_input;
    requestBuffer = nullptr;
    auditUserName = nullptr;
    auditInterfaceName = nullptr;
    m_input = nullptr;
}

ConnectionHandler::~ConnectionHandler()
{
    m_log.logTrace("ConnectionHandler destructor.  Deleting %i agent contexts.\n",
                   static_cast<int>(m_dataHandlers.size()));
    releaseAll();
    m_manager.connectionEnded(this);
}

void ConnectionHandler::closeSocket()
{
    m_manager.connectionClosing(this);
    m_socket.close();
}

GUIDataServer& ConnectionHandler::getServer()
{
    return m_manager.getServer();
}

void ConnectionHandler::setLog(ALog& log)
{
    m_log.setBaseLog(log);
    m_socket.getLog().setParent(m_log);
    for (DataHandler* handler : m_dataHandlers) {
        handler->setLog(log);
    }
}

bool ConnectionHandler::startProcessing()
{
    m_log.logTrace("ConnectionHandler::startProcessing: Starting to process requests in handler.\n");
    return start();
}

bool ConnectionHandler::start()
{
    return ConnectionThreads::start(*this);
}

void ConnectionHandler::reserveRequest(int size)
{
    if (size <= requestCapacity) {
        return;
    }
    // Grows in one step to what is asked, rounded up to 1 KiB (never past
    // the longest text accepted): a connection's requests are alike.
    int capacity = (size + 1023) / 1024 * 1024;
    if (capacity > bufferSize) {
        capacity = bufferSize;
    }
    char* bigger = new char[static_cast<size_t>(capacity)];  // throws std::bad_alloc: run() ends the connection
    memcpy(bigger, requestBuffer, static_cast<size_t>(requestCapacity));
    delete[] requestBuffer;
    requestBuffer = bigger;
    requestCapacity = capacity;
}

void ConnectionHandler::run()
{
    // This thread's log and console lines leave once per request (ALog).
    ALog::collectLines(true);
    m_log.logTrace("ConnectionHandler::run  Call to handler run method.\n");
    // A wait for the next request ends after kIdleReleaseMs (EAGAIN) so
    // that the connection can hand back memory; reads inside a frame use
    // their own deadline (ASocket::read polls).
    struct timeval idle = {0, kIdleReleaseMs * 1000};
    setsockopt(m_socket.getDescriptor(), SOL_SOCKET, SO_RCVTIMEO, &idle, sizeof idle);
    try {
        while (!stopRequested) {
            ++requestCount;
            if (nextRequest() != nullptr) {
                m_manager.connectionBusy(this, true);
                // One request writes a bounded number of lines for its items;
                // the rest are counted in one summary line.
                ALog::beginItemLines(kItemLogLines);
                // Writing the reply, whatever its length, may take at most
                // the frame deadline.
                m_socket.beginReply(m_manager.getFrameDeadlineMs());
                processRequest();
                m_socket.flush();
                int held = ALog::endItemLines();
                if (held > 0) {
                    m_log.logInfo("ConnectionHandler: %i more log lines for the items of request %i not written.\n",
                                  held, requestCount);
                }
                m_manager.connectionBusy(this, false);
                m_log.logTrace("ConnectionHandler::run: Completed processing of request %i\n", requestCount);
                m_log.flush();  // the request's log lines leave together
                if (m_socket.getWriteError() != 0) {
                    m_log.logWarning(
                        "ConnectionHandler: the reply to request %i could not be written (%s), "
                        "closing the connection.\n",
                        requestCount, strerror(m_socket.getWriteError()));
                    closeSocket();
                    stopRequested = true;
                }
            } else {
                puts("need stop this thread");
                m_socket.flush();
            }
        }
    } catch (const std::bad_alloc&) {
        ALog::endItemLines();
        m_log.logError("ConnectionHandler: out of memory, closing the connection.\n");
    } catch (...) {
        ALog::endItemLines();
        m_log.logError("ConnectionHandler: unexpected failure, closing the connection.\n");
    }
    closeSocket();
    ALog::collectLines(false);  // writes what is left
    delete this;                // nothing touches the handler after this
}

char* ConnectionHandler::nextRequest()
{
    m_log.logTrace("ConnectionHandler::nextRequest: waiting for packet %i length.\n", requestCount);
    char* request = nxtGenPort ? inReqNxtGenSrvPort() : inReqLegacySrvPort();
    endFrame();
    return request;
}

void ConnectionHandler::refuseFrame()
{
    // Bytes already read ahead behind the refused header belong to a frame
    // the server refused to read: they are dropped, never parsed. The next
    // length read then fails on the closed socket and the loop ends.
    m_inputStart = 0;
    m_inputEnd = 0;
    closeSocket();
}

void ConnectionHandler::socketReadFailed(const char* what)
{
    int err = errno;
    if (err == ETIMEDOUT) {
        // Beyond the original design: a frame once begun must arrive whole.
        m_log.logWarning("ConnectionHandler: request %i not complete within %i s, closing the connection.\n",
                         requestCount, m_manager.getFrameDeadlineMs() / 1000);
    }
    // A client that closes between requests is no error worth an errno text.
    const char* reason = m_cleanClose ? "connection closed by peer" : strerror(err);
    m_log.logTrace("ConnectionHandler::socketReadFailed: ERROR: %s (%s).\n", what, reason);
    refuseFrame();  // also drops what was read ahead: nothing after it is parsed
    stopRequested = true;
}

int ConnectionHandler::readFrameBytes(unsigned char* data, int length)
{
    int done = 0;
    while (done < length) {
        if (m_inputStart < m_inputEnd) {
            int n = m_inputEnd - m_inputStart;
            if (n > length - done) {
                n = length - done;
            }
            memcpy(data + done, m_input + m_inputStart, static_cast<size_t>(n));
            m_inputStart += n;
            done += n;
            if (m_frameBytes == 0) {
                // The frame has begun: the rest must follow within the deadline.
                m_socket.setReadDeadline(m_manager.getFrameDeadlineMs());
            }
            m_frameBytes += n;
            continue;
        }
        // Whatever has arrived, up to the buffer's size, in one call: a
        // small frame takes one read. A long text is read straight into its
        // place.
        bool direct = length - done >= kInputSize;
        if (!direct && m_input == nullptr) {
            // Idle: wait without a buffer, then take one. A closed
            // socket (after a refused frame) has nothing to wait for: poll
            // would ignore the descriptor and wait for ever.
            if (m_socket.getDescriptor() < 0) {
                errno = EBADF;
                return -1;
            }
            struct pollfd p = {m_socket.getDescriptor(), POLLIN, 0};
            if (m_frameBytes == 0 && poll(&p, 1, -1) < 0 && errno != EINTR) {
                return -1;
            }
            m_input = new unsigned char[kInputSize];  // std::bad_alloc ends the connection
        }
        int n = direct ? m_socket.read(data, done, length - done) : m_socket.read(m_input, 0, kInputSize);
        if (n < 0 && m_frameBytes == 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            releaseIdle();  // nothing for kIdleReleaseMs between requests
            continue;
        }
        if (n <= 0) {
            if (n == 0 && m_frameBytes == 0) {
                m_cleanClose = true;
                errno = 0;
            } else if (n == 0) {
                errno = ECONNRESET;  // the stream ended inside a frame
            }
            return -1;
        }
        if (direct) {
            if (m_frameBytes == 0) {
                m_socket.setReadDeadline(m_manager.getFrameDeadlineMs());
            }
            m_frameBytes += n;
            done += n;
            continue;
        }
        m_inputStart = 0;
        m_inputEnd = n;
    }
    return 0;
}

int ConnectionHandler::readFrameInt(int& value)
{
    unsigned char b[4];
    if (readFrameBytes(b, 4) != 0) {
        return -1;
    }
    value = static_cast<int>((static_cast<unsigned int>(b[0]) << 24) | (static_cast<unsigned int>(b[1]) << 16) |
                             (static_cast<unsigned int>(b[2]) << 8) | b[3]);
    return 0;
}

void ConnectionHandler::releaseIdle()
{
    if (m_inputStart == m_inputEnd) {
        delete[] m_input;
        m_input = nullptr;
        m_inputStart = m_inputEnd = 0;
    }
    if (requestCapacity > kInitialRequestSize) {
        char* smaller = new (std::nothrow) char[kInitialRequestSize];
        if (smaller != nullptr) {
            smaller[0] = '\0';
            delete[] requestBuffer;
            requestBuffer = smaller;
            requestCapacity = kInitialRequestSize;
        }
    }
    m_socket.releaseBuffers();
    ConnectionThreads::releaseUnusedStack();
}

void ConnectionHandler::endFrame()
{
    m_frameBytes = 0;
    m_socket.setReadDeadline(0);
}

void ConnectionHandler::trimLineEnds()
{
    size_t len = strlen(requestBuffer);
    while (len > 0 && requestBuffer[len - 1] == '\n') {
        requestBuffer[--len] = '\0';
    }
}

void ConnectionHandler::splitPrivilegeWord(int word)
{
    unsigned int w = static_cast<unsigned int>(word);
    rawReply = static_cast<int>(w >> 24);
    privileges = static_cast<int>(w & 0x00FFFFFFu);
}

char* ConnectionHandler::inReqLegacySrvPort()
{
    int length = 0;
    if (readFrameInt(length) != 0 || length <= 0) {
        socketReadFailed("Failed to read packet length");
        return nullptr;
    }
    // A length below 4 cannot even hold the magic: rejected like a length
    // above the buffer, so nothing outside the buffer is ever read or written.
    if (length > bufferSize || length < 4) {
        m_log.logError("ConnectionHandler::nextRequest: ERROR: Invalid message length of: %i, closing socket.\n",
                       length);
        refuseFrame();
        return nullptr;
    }
    privileges = 0;
    int word = 0;
    if (readFrameInt(word) != 0) {
        socketReadFailed("Failed to read privileges");
        return nullptr;
    }
    privileges = word;
    unsigned char magic[4];
    if (readFrameBytes(magic, 4) != 0 || memcmp(magic, kMagic, 4) != 0) {
        socketReadFailed("Bad magic string from web data handler request");
        return nullptr;
    }
    splitPrivilegeWord(word);
    int textLength = length - 4;
    m_log.logTrace("ConnectionHandler::nextRequest:  Priv=  %x  got packet length of %i, reading into %lx.\n",
                   static_cast<unsigned int>(privileges), textLength,
                   static_cast<unsigned long>(reinterpret_cast<uintptr_t>(requestBuffer)));
    reserveRequest(textLength + 1);
    if (readFrameBytes(reinterpret_cast<unsigned char*>(requestBuffer), textLength) != 0) {
        socketReadFailed("Failed to read packet data");
        return nullptr;
    }
    requestBuffer[textLength] = '\0';  // reserved above: textLength + 1 bytes
    trimLineEnds();
    return requestBuffer;
}

char* ConnectionHandler::inReqNxtGenSrvPort()
{
    privileges = 0;
    int length = 0;
    if (readFrameInt(length) != 0 || length <= 0) {
        socketReadFailed("Failed to read packet length");
        return nullptr;
    }
    if (length > bufferSize) {
        m_log.logError("ConnectionHandler::nextRequest: ERROR: Invalid message length of: %i, closing socket.\n",
                       length);
        refuseFrame();
        return nullptr;
    }
    char* json = static_cast<char*>(calloc(static_cast<size_t>(length) + 1, 1));
    if (json == nullptr) {
        m_log.logError("ConnectionHandler::nextRequest: ERROR: calloc failed.\n");
        refuseFrame();
        return nullptr;
    }
    if (readFrameBytes(reinterpret_cast<unsigned char*>(json), length) != 0) {
        socketReadFailed("Failed to read json data");
        free(json);
        closeSocket();
        return nullptr;
    }
    gds_params params;
    if (getGDSProtoHeaderFields(json, &params) != 0) {
        socketReadFailed("Failed to decode json data");
        free(json);
        closeSocket();
        return nullptr;
    }
    if (params.magic == nullptr || strncmp(params.magic, kMagic, 4) != 0) {
        socketReadFailed("Bad magic string from web data handler request");
        free(json);
        freeGDSProtoHeaderFields(&params);
        closeSocket();
        return nullptr;
    }
    // A header without a "Command" string carries an empty request, which
    // is answered like any request with neither a set nor a get part.
    const size_t commandLength = params.command != nullptr ? strlen(params.command) : 0;
    reserveRequest(commandLength + 1 < static_cast<size_t>(bufferSize) ? static_cast<int>(commandLength) + 1
                                                                       : bufferSize);
    copyName(requestBuffer, requestCapacity, params.command);
    // A missing "Username" or "Interface" leaves the name empty, as on the
    // legacy port.
    copyName(auditUserName, kUserNameSize, params.username);
    copyName(auditInterfaceName, kInterfaceNameSize, params.interface);
    int word = params.privilege;
    free(json);
    freeGDSProtoHeaderFields(&params);
    splitPrivilegeWord(word);
    trimLineEnds();
    return requestBuffer;
}

// ---------------------------------------------------------------------------
// Request processing

namespace {
bool isIndexName(const std::string& name)
{
    return name == "enicIndex" || name == "fnicIndex" || name == "adapterIndex" || name == "fnicBTIndex";
}

bool isDelim(const RequestToken& token, char c)
{
    return token.getType() == RequestToken::DELIM && token.getDelim() == c;
}

// The agents of one phase, in order of first use.
struct PhaseAgents {
    std::vector<DataAgent*> order;
    std::set<DataAgent*> seen;
    bool add(DataAgent* agent)
    {
        if (!seen.insert(agent).second) {
            return false;
        }
        order.push_back(agent);
        return true;
    }
};

const char kGenericError[] =
    "<errorMsg>The current operation failed. BRESK may be running any critical operation or in error state. "
    "Retry after sometime or reboot BRESK if necessary </errorMsg>\n";
const char kPasswordPolicyError[] =
    "<errorMsg>User Password Expiry Policy configuration error. User Password Expiry Policy must meet the "
    "following requirements: 1. Valid password duration > Notification period. 2. Valid password duration > "
    "Grace period. </errorMsg>\n";
}  // namespace

DataAgent* ConnectionHandler::getDataAgentFor(std::string& property)
{
    for (DataHandler* handler : m_dataHandlers) {
        DataAgent* agent = handler->getDataAgentFor(property);
        if (agent != nullptr) {
            return agent;
        }
    }
    return m_guiDataHandler != nullptr ? m_guiDataHandler->getDefaultAgent() : nullptr;
}

std::string ConnectionHandler::parseForSet(std::vector<RequestToken>& tokens, std::vector<std::string>& names,
                                           TokenMap& arguments)
{
    const size_t n = tokens.size();
    m_log.logTrace("ConnectionHandler::parseForSet called with %i tokens.\n", static_cast<int>(n));
    std::string indexName;
    size_t j = n;
    for (size_t i = 0; i + 1 < n; ++i) {
        if (tokens[i].getType() == RequestToken::TEXT && tokens[i].toString() == "set" && isDelim(tokens[i + 1], '=')) {
            j = i + 2;
            break;
        }
    }
    // Format errors are formatted into a 1024-byte buffer; snprintf cuts a
    // longer message (the reply never shows it anyway). "Missing ',' after"
    // names the first character of the argument just read.
    char message[1024];
    while (j < n) {
        std::string name = tokens[j].getString();  // a DELIM here is a format error
        std::vector<RequestToken> args;
        if (j + 1 < n && isDelim(tokens[j + 1], '(')) {
            ++j;
            while (j + 1 < n) {
                if (tokens[j + 1].getType() == RequestToken::DELIM) {
                    args.push_back(RequestToken(RequestToken::TEXT, std::string()));
                    ++j;
                    continue;
                }
                args.push_back(tokens[j + 1]);
                j += 2;
                char last = tokens[j - 1].toString().empty() ? ' ' : tokens[j - 1].toString()[0];
                if (j >= n) {
                    snprintf(message, sizeof message, "Missing ',' after %c", last);
                    throw RequestFormatException(message);
                }
                if (isDelim(tokens[j], ')')) {
                    break;
                }
                if (!isDelim(tokens[j], ',')) {
                    snprintf(message, sizeof message, "Missing ',' after %c", last);
                    throw RequestFormatException(message);
                }
            }
        } else if (j + 1 < n && isDelim(tokens[j + 1], ':')) {
            if (j + 2 >= n || tokens[j + 2].getType() == RequestToken::DELIM) {
                args.push_back(RequestToken(RequestToken::TEXT, std::string()));
                if (ALog::takeItemLine()) {
                    m_log.logTrace("ConnectionHandler::parseForSet: name/value= %s/%s\n", name.c_str(), "");
                }
                j += 2;
            } else {
                args.push_back(tokens[j + 2]);
                if (ALog::takeItemLine()) {
                    m_log.logTrace("ConnectionHandler::parseForSet: name/value= %s/%s\n", name.c_str(),
                                   tokens[j + 2].toString().c_str());
                }
                j += 3;
            }
        } else {
            snprintf(message, sizeof message, "Missing value assignment after: %s", tokens[j].toString().c_str());
            throw RequestFormatException(message);
        }
        if (isIndexName(name)) {
            indexName = name;
        }
        names.push_back(name);
        arguments[name] = args;
        ++j;
    }
    m_log.logTrace("ConnectionHandler::parseForSet:  Found %i parameters.\n", static_cast<int>(names.size()));
    return indexName;
}

void ConnectionHandler::parseForGet(std::string& request, std::vector<std::string>& items)
{
    items.clear();
    size_t at = request.find("get=");
    if (at == std::string::npos) {
        return;
    }
    std::string rest = request.substr(at + 4);
    size_t start = 0;
    for (;;) {
        size_t comma = rest.find(',', start);
        if (comma == std::string::npos) {
            std::string last = rest.substr(start);
            if (!last.empty() || items.empty()) {
                items.push_back(last);  // the first piece is always an item
            }
            return;
        }
        items.push_back(rest.substr(start, comma - start));
        start = comma + 1;
    }
}

void ConnectionHandler::parseForArgs(std::string& item, std::string& name, std::string& extra)
{
    size_t k = item.find('(');
    if (k == std::string::npos) {
        k = item.find('[');
    }
    if (k == std::string::npos) {
        name = item;
        extra.clear();
        return;
    }
    name = item.substr(0, k);
    extra = item.substr(k);
    if (ALog::takeItemLine()) {
        ALog::console(" name(%s), extra(%s)\n", ALog::escapeControls(name.c_str(), false).c_str(),
                      ALog::escapeControls(extra.c_str(), false).c_str());
    }
}

void ConnectionHandler::parsePropertyTokens(const std::string& text, std::vector<std::string>& out)
{
    int depth = 0;
    std::string piece;
    for (char c : text) {
        if (c == '(') {
            ++depth;
        } else if (c == ')') {
            --depth;
        } else if (c == ',' && depth == 0) {
            out.push_back(piece);
            piece.clear();
        } else {
            piece += c;
        }
    }
    if (!piece.empty()) {
        out.push_back(piece);
    }
}

void ConnectionHandler::processDocument(std::string& name, std::string& extra)
{
    DataAgent* agent = getDataAgentFor(name);
    if (agent == nullptr) {
        return;
    }
    // An agent's exception on this path must not end the connection or the
    // process: it is logged and the reply ends with what was written.
    try {
        agent->initialize();
        int rc = agent->preProcessGet(name, extra);
        if (rc == 1) {
            rc = agent->processGet();
        }
        if (rc == 1) {
            rc = agent->postProcessGet(*this);
        }
        if (rc != 1) {
            m_log.logInfo("ConnectionHandler::processRequest: Unable to post-process request.\n");
        }
    } catch (...) {
        m_log.logError("ConnectionHandler::processRequest: Exception while writing a document.\n");
    }
    m_socket.sendResponsePacket(true);
}

void ConnectionHandler::writeErrorReply(const char* format, const char* message)
{
    if (rawReply != 0) {
        return;
    }
    // The reply must stay well-formed whatever an agent put in its message
    // (often an echo of the request): "&", "<" and ">" are escaped, control
    // characters other than tab and line end (not allowed in XML) are
    // written as \xNN, and a message too long for the 1023-byte buffer is
    // cut before the closing tag, never inside an escape, so the element
    // always ends.
    std::string text;
    for (const char* p = message; *p != '\0'; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if ((c < 0x20 && c != '\t' && c != '\n') || c == 0x7f) {
            char hex[5];
            snprintf(hex, sizeof hex, "\\x%02x", c);
            text += hex;
            continue;
        }
        switch (*p) {
            case '&':
                text += "&amp;";
                break;
            case '<':
                text += "&lt;";
                break;
            case '>':
                text += "&gt;";
                break;
            default:
                text += *p;
        }
    }
    char buffer[1023];
    const size_t room = sizeof buffer - 1 - (strlen(format) - 2);
    if (text.size() > room) {
        size_t cut = room;
        size_t amp = text.rfind('&', cut - 1);
        if (amp != std::string::npos && text.find(';', amp) >= cut) {
            cut = amp;
        }
        text.resize(cut);
    }
    m_socket.writeString("<status>error</status>");
    snprintf(buffer, sizeof buffer, format, text.c_str());
    m_socket.writeString(buffer);
    m_socket.writeString("</root>");
}

int ConnectionHandler::processRequest()
{
    std::string request(requestBuffer);

    static const char* const kDocuments[] = {"kvm.jnlp", "crashCapture.jnlp", "bootCapture.jnlp"};
    bool viewer = request.find("viewer.jnlp") != std::string::npos;
    std::string document;
    for (const char* name : kDocuments) {
        if (request.find(name) != std::string::npos) {
            document = name;
            break;
        }
    }
    if (!document.empty() || viewer) {
        if (document.empty()) {
            if ((privileges & 0x20) == 0) {
                return 0;  // no KVM console privilege: no reply at all
            }
            document = "viewer.jnlp";
        }
        processDocument(document, request);
        return 0;
    }
    if (request.compare(0, 17, "/captureFile.jnlp") == 0) {
        std::string name = "captureFile";
        std::string extra;
        processDocument(name, extra);
        return 0;
    }

    if (rawReply == 0) {
        m_socket.writeString("<root>");
    }
    const char* iface = auditInterfaceName;
    // The debug log shows the request, but never a password in it.
    std::string masked;
    const char* loggedRequest = DataAgent::maskPasswords(requestBuffer, masked) ? masked.c_str() : requestBuffer;
    try {
        bool error = false;
        bool userPolicySeen = false;
        bool passwordPolicyError = false;
        std::vector<RequestToken> tokens;
        std::vector<std::string> names;
        TokenMap arguments;
        m_tokenizer.tokenize(request, tokens);
        std::string indexName = parseForSet(tokens, names, arguments);

        if (!names.empty() && !indexName.empty()) {
            DataAgent* agent = getDataAgentFor(indexName);
            if (agent != nullptr) {
                int r1 = agent->initialize();
                int r2 = agent->preProcessSet(indexName, arguments);
                int r3 = agent->processSet();
                int r4 = agent->postProcessSet(*this, arguments);
                (void)r1;  // the result of initialize() is not looked at
                error = error || r2 != 1 || r3 != 1 || r4 != 1;
            }
        } else if (!names.empty()) {
            PhaseAgents phase;
            for (std::string& name : names) {
                if (ALog::takeItemLine()) {
                    m_log.logTrace("ConnectionHandler::processRequest: Process set: %s\n", name.c_str());
                }
                DataAgent* agent = getDataAgentFor(name);
                if (agent == nullptr) {
                    if (ALog::takeItemLine()) {
                        m_log.logInfo("ConnectionHandler::processRequest: Missing agent in set call for property: %s\n",
                                      name.c_str());
                    }
                    continue;
                }
                if (phase.add(agent)) {
                    m_log.logTrace("ConnectionHandler::processRequest: Initializing agent %s\n", agent->getName());
                    agent->initialize();
                }
                if (strcmp(agent->getName(), "UserPolicy") == 0) {
                    m_log.logTrace("ConnectionHandler::processRequest: UserPolicy agent\n");
                    userPolicySeen = true;
                }
                if (agent->preProcessSet(name, arguments) != 1) {
                    if (ALog::takeItemLine()) {
                        m_log.logInfo("ConnectionHandler::processRequest: error in call to agent for property %s\n",
                                      name.c_str());
                    }
                    error = true;
                }
            }
            for (DataAgent* agent : phase.order) {
                if (agent->processSet() != 1) {
                    error = true;
                }
                if (userPolicySeen) {
                    passwordPolicyError = true;
                }
                m_log.logTrace(
                    "ConnectionHandler::processRequest: bUserPolicyAgent [%d] UserPolicyPasswordExpirationError "
                    "[%d]\n",
                    userPolicySeen ? 1 : 0, passwordPolicyError ? 1 : 0);
            }
            for (DataAgent* agent : phase.order) {
                if (agent->postProcessSet(*this, arguments) != 1) {
                    error = true;
                }
            }
        }

        parseForGet(request, names);
        if (!names.empty()) {
            m_log.logTrace("ConnectionHandler::processRequest:  Processing get request for %i parameters\n",
                           static_cast<int>(names.size()));
            PhaseAgents phase;
            for (std::string& item : names) {
                std::string name;
                std::string extra;
                parseForArgs(item, name, extra);
                DataAgent* agent = getDataAgentFor(name);
                if (agent == nullptr) {
                    continue;
                }
                if (phase.add(agent)) {
                    m_log.logTrace("ConnectionHandler::processRequest: Initializing agent %s\n", agent->getName());
                    agent->initialize();
                }
                if (agent->preProcessGet(name, extra) != 1) {
                    error = true;
                }
            }
            for (DataAgent* agent : phase.order) {
                if (agent->processGet() != 1) {
                    error = true;
                }
            }
            for (DataAgent* agent : phase.order) {
                if (agent->postProcessGet(*this) != 1) {
                    error = true;
                }
            }
        }

        if (rawReply == 0) {
            if (!error) {
                m_socket.writeString("<status>ok</status>\n");
            } else {
                m_socket.writeString("<status>error</status>\n");
                m_socket.writeString(passwordPolicyError ? kPasswordPolicyError : kGenericError);
            }
            m_socket.writeString("</root>\n");
        }
        gds_debug_log(1, "interface %s => %s and ret=%d\n", iface, loggedRequest, error ? 1 : 0);
    } catch (ProcessingException& e) {
        m_log.logInfo("ConnectionHandler::processRequest: ProcessingException: %s\n", e.getMessage());
        gds_debug_log(1, "interface %s => %s and  ProcessingException\n", iface, loggedRequest);
        writeErrorReply("<errorMsg>%s</errorMsg>", e.getMessage());
    } catch (SecurityException& e) {
        m_log.logInfo("ConnectionHandler::processRequest: SecurityException: %s\n", e.getMessage());
        gds_debug_log(1, "interface %s => %s and SecurityException\n", iface, loggedRequest);
        writeErrorReply("<errorMsg>%s</errorMsg>", e.getMessage());
    } catch (RequestFormatException& e) {
        m_log.logInfo("ConnectionHandler::processRequest: RequestFormatException");
        gds_debug_log(1, "interface %s => %s RequestFormatException\n", iface, loggedRequest);
        writeErrorReply("<errorMsg>%s</errorMsg>", "Bad request format");
    } catch (const char* message) {
        if (message == nullptr) {
            message = "";
        }
        m_log.logInfo("ConnectionHandler::processRequest: Exception: %s\n", message);
        gds_debug_log(1, "interface %s => %s exMessage %s\n", iface, loggedRequest, message);
        writeErrorReply("<errorMsg>General error: %s</errorMsg>", message);
    } catch (...) {
        m_log.logInfo("ConnectionHandler::processRequest: Exception of unknown type while processing request.\n");
        gds_debug_log(1, "interface %s => %s and unknown \n", iface, loggedRequest);
        writeErrorReply("<errorMsg>%s</errorMsg>", "Unexpected error");
    }
    if (rawReply == 0) {
        m_socket.sendResponsePacket(true);
    }
    return 0;
}
