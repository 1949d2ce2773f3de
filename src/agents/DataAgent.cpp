#include "DataAgent.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "DataHandler.h"
#include "GUIDataSocket.h"
#include "PlatformRoot.h"
#include "RequestToken.h"
#include "ToolRun.h"
#include "gds_number.h"

std::atomic<int> DataAgent::platform_{0};

DataAgent::DataAgent(const char* name, DataHandler& handler)
    : m_name(name), m_dataHandler(&handler), m_log(name), m_status(1), m_backendText(nullptr)
{
    m_log.setParent(handler.getLog());
}

DataAgent::~DataAgent()
{
    free(m_backendText);
}

namespace {
// The first whitespace-delimited word of a file, at most 63 characters; ""
// when the file cannot be read.
std::string firstWord(const char* controllerPath, bool* opened = nullptr)
{
    std::string path = PlatformRoot::path(controllerPath);
    FILE* f = fopen(path.c_str(), "r");
    if (opened != nullptr) {
        *opened = f != nullptr;
    }
    if (f == nullptr) {
        return "";
    }
    char word[64] = "";
    if (fscanf(f, "%63s", word) != 1) {
        word[0] = '\0';
    }
    fclose(f);
    return word;
}
}  // namespace

PLATFORM DataAgent::getPlatform()
{
    int cached = platform_.load();
    if (cached != 0) {
        return static_cast<PLATFORM>(cached);
    }
    static const struct {
        const char* product;
        PLATFORM platform;
    } kProducts[] = {
        {"dravon", PLATFORM_DRAVON},   {"zenth", PLATFORM_ZENTH},       {"kestin", PLATFORM_KESTIN},
        {"morlac", PLATFORM_MORLAC},   {"tovrel", PLATFORM_TOVREL},     {"quentar", PLATFORM_QUENTAR},
        {"lurven", PLATFORM_LURVEN},   {"pallix1", PLATFORM_PALLIX1},   {"pallix2", PLATFORM_PALLIX2},
        {"vorsha1", PLATFORM_VORSHA1}, {"vorsha2", PLATFORM_VORSHA2},   {"greff1", PLATFORM_GREFF1},
        {"greff2", PLATFORM_GREFF2},   {"nimbrel1", PLATFORM_NIMBREL1}, {"castrel", PLATFORM_CASTREL},
        {"ondrik", PLATFORM_ONDRIK},   {"wescal", PLATFORM_WESCAL},     {"fenlow", PLATFORM_FENLOW},
        {"ruskel", PLATFORM_RUSKEL},
    };
    // Without "/etc/product" (a development machine) the platform is unknown.
    std::string product = firstWord("/etc/product");
    int found = 0;
    for (const auto& entry : kProducts) {
        if (product == entry.product) {
            found = entry.platform;
            break;
        }
    }
    if (found == PLATFORM_DRAVON) {
        if (firstWord("/proc/pellox/gpio/2u_chassis").compare(0, 1, "1") == 0) {
            found = PLATFORM_DRAVON_2U;
        }
    } else if (found == PLATFORM_RUSKEL) {
        bool opened = false;
        if (firstWord("/proc/pellox/gpio/riser1_id_0", &opened).compare(0, 1, "0") == 0) {
            found = PLATFORM_RUSKEL_RISER;
        }
        if (opened && firstWord("/proc/pellox/gpio/riser1_id_1").compare(0, 1, "0") == 0) {
            found = PLATFORM_RUSKEL_RISER;
        }
    }
    platform_.store(found);
    return static_cast<PLATFORM>(found);
}

namespace {
// The first argument of `name`, or null when the name is absent (`absent`
// set) or has no arguments.
RequestToken* firstArgument(TokenMap& map, const char* name, bool& absent)
{
    auto it = map.find(name);
    absent = it == map.end();
    if (absent || it->second.empty()) {
        return nullptr;
    }
    return &it->second[0];
}

// Reads a leading base-10 number as the controller's 32-bit strtol does
// (saturating); false when nothing was read.
bool leadingNumber(const std::string& text, long& number)
{
    const char* start = text.c_str();
    char* end = nullptr;
    number = gds_strtol32(start, &end, 10);
    return end != start;
}
}  // namespace

int DataAgent::setString(TokenMap& map, char* buffer, const char* name, int size, bool trim)
{
    if (size < 1) {
        return 0;
    }
    bool absent = false;
    RequestToken* arg = firstArgument(map, name, absent);
    if (arg == nullptr) {
        buffer[0] = '\0';
        return 0;
    }
    std::string text = arg->toString();
    if (trim) {
        size_t first = text.find_first_not_of(" \"");
        if (first != std::string::npos) {
            size_t last = text.find_last_not_of(" \"");
            text = text.substr(first, last - first + 1);
        }
        // A text made only of blanks and double quotes stays as it is.
    }
    setString(text, buffer, size);
    return 1;
}

void DataAgent::setString(const std::string& value, char* buffer, int size)
{
    if (size < 1) {
        return;
    }
    size_t n = value.size() < static_cast<size_t>(size - 1) ? value.size() : static_cast<size_t>(size - 1);
    memcpy(buffer, value.data(), n);
    // Zero up to and including index size - 1, as strncpy with a terminator.
    memset(buffer + n, 0, static_cast<size_t>(size) - n);
}

int DataAgent::setInt(TokenMap& map, int& value, const char* name)
{
    bool absent = false;
    RequestToken* arg = firstArgument(map, name, absent);
    if (absent) {
        value = 0;
        return 0;
    }
    long number = 0;
    if (arg == nullptr || !leadingNumber(arg->toString(), number)) {
        return 0;
    }
    value = static_cast<int>(number);
    return 1;
}

int DataAgent::setBoolean(TokenMap& map, signed char& value, const char* name)
{
    bool absent = false;
    RequestToken* arg = firstArgument(map, name, absent);
    if (absent) {
        value = 0;
        return 0;
    }
    long number = 0;
    if (arg == nullptr || !leadingNumber(arg->toString(), number)) {
        return 0;
    }
    value = static_cast<signed char>(static_cast<unsigned long>(number) & 0xff);
    return 1;
}

int DataAgent::setByte(TokenMap& map, signed char& value, const char* name)
{
    return setBoolean(map, value, name);
}

int DataAgent::setuByte(TokenMap& map, unsigned char& value, const char* name)
{
    bool absent = false;
    RequestToken* arg = firstArgument(map, name, absent);
    if (absent) {
        value = 0;
        return 0;
    }
    long number = 0;
    if (arg == nullptr || !leadingNumber(arg->toString(), number)) {
        return 0;
    }
    value = static_cast<unsigned char>(static_cast<unsigned long>(number) & 0xff);
    return 1;
}

int DataAgent::lookupString(TokenMap& map, std::string& name, std::string& value)
{
    value.clear();
    bool absent = false;
    RequestToken* arg = firstArgument(map, name.c_str(), absent);
    if (absent) {
        return 0;
    }
    if (arg != nullptr) {
        value = arg->toString();
    }
    return 1;
}

int DataAgent::parseInt(const std::string& text, int& value)
{
    for (char c : text) {
        if (c < '0' || c > '9') {
            return 0;
        }
    }
    value = gds_strtol32(text.c_str(), nullptr, 10);
    return 1;
}

bool DataAgent::powerOff()
{
    std::string state = getValue("pwState");
    return !state.empty() && state[0] == '0';
}

bool DataAgent::powerOn()
{
    return !powerOff();
}

int DataAgent::threadSleep(int seconds, int milliseconds)
{
    struct timeval now;
    gettimeofday(&now, nullptr);
    long long nsec = static_cast<long long>(now.tv_usec) * 1000 + static_cast<long long>(milliseconds) * 1000000;
    struct timespec deadline;
    deadline.tv_sec = now.tv_sec + seconds + static_cast<time_t>(nsec / 1000000000);
    deadline.tv_nsec = static_cast<long>(nsec % 1000000000);
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t cond = PTHREAD_COND_INITIALIZER;
    pthread_mutex_lock(&mutex);
    // Never signalled: the wait ends at the deadline (spurious wake-ups wait again).
    while (pthread_cond_timedwait(&cond, &mutex, &deadline) == 0) {
    }
    pthread_mutex_unlock(&mutex);
    pthread_cond_destroy(&cond);
    pthread_mutex_destroy(&mutex);
    return 0;
}

// ---------------------------------------------------------------------------
// Controller tools and their YAML-like output

namespace {

// A tool run (ToolRun: no shell; filters in the server), its standard
// output readable as a stream.
struct BackendPipe {
    ToolRun run;
    FILE* stream = nullptr;
};

bool openBackend(const char* command, BackendPipe& backend)
{
    if (!backend.run.start(command)) {
        return false;
    }
    backend.stream = backend.run.stream();
    return true;
}

// pclose: closes the stream first (a tool still writing gets SIGPIPE), then
// waits. The exit status (128 + the signal number for a killed tool), or -1.
int closeBackend(BackendPipe& backend)
{
    backend.stream = nullptr;
    return backend.run.finish();
}

// Lines of a tool's output, from its stream or from prepared text.
class LineSource {
public:
    LineSource(FILE* stream, const char* text) : m_stream(stream), m_text(stream == nullptr ? text : nullptr) {}

    // Copies at most `max` bytes into `buffer`, up to and including the next
    // line break; the number of bytes, 0 at the end. Not terminated.
    size_t read(char* buffer, size_t max)
    {
        size_t n = 0;
        if (m_stream != nullptr) {
            int c;
            while (n < max && (c = getc(m_stream)) != EOF) {
                buffer[n++] = static_cast<char>(c);
                if (c == '\n') {
                    break;
                }
            }
        } else if (m_text != nullptr) {
            while (n < max && *m_text != '\0') {
                char c = *m_text++;
                buffer[n++] = c;
                if (c == '\n') {
                    break;
                }
            }
        }
        return n;
    }

private:
    FILE* m_stream;
    const char* m_text;
};

// "order: N.0" for N of 0 to 19 becomes "order: N".
const char* const kOrderTable[20] = {"0.0",  "1.0",  "2.0",  "3.0",  "4.0",  "5.0",  "6.0",  "7.0",  "8.0",  "9.0",
                                     "10.0", "11.0", "12.0", "13.0", "14.0", "15.0", "16.0", "17.0", "18.0", "19.0"};

// Makes `buffer` hold at least `size` bytes; false when it cannot (the old
// buffer is kept) or when `size` is above `limit`.
bool reserve(char*& buffer, size_t& capacity, size_t size, size_t limit)
{
    if (size <= capacity) {
        return true;
    }
    if (size > limit) {
        return false;
    }
    size_t grown = capacity < 256 ? 256 : capacity;
    while (grown < size) {
        grown *= 2;
    }
    if (grown > limit) {
        grown = limit;
    }
    char* bigger = static_cast<char*>(realloc(buffer, grown));
    if (bigger == nullptr) {
        return false;
    }
    buffer = bigger;
    capacity = grown;
    return true;
}

}  // namespace

// The property tool's "sender get=NAME | outline | grep NAME | awk '{print $2}'":
// "sender" and "outline" are started directly, piped into each other, and
// the grep and awk are done in the server (two processes instead of five).
// The names are the agents' own constants (no request text reaches this).
std::string DataAgent::getValue(const char* name)
{
    ToolRun::Command command = ToolRun::program({"sender", std::string("get=") + name},
                                                {{ToolFilter::Step::kGrep, name}, {ToolFilter::Step::kField, "", 2}});
    command.programs.push_back({"outline"});
    ToolRun tool;
    if (!tool.start(command)) {
        return "";
    }
    char line[128];
    std::string result;
    if (fgets(line, sizeof line, tool.stream()) != nullptr) {
        result = line;
    }
    tool.finish();
    return result;
}

int DataAgent::xmlize(FILE* input, GUIDataSocket& socket, const char* tag, bool& hasError, std::string& errorText,
                      const char* pcCompStr, bool wrapList)
{
    hasError = false;
    errorText.clear();
    if (input == nullptr && m_backendText == nullptr) {
        return -1;
    }
    LineSource source(input, m_backendText);
    char line[kXmlizeBufferSize];
    char element[kXmlizeBufferSize];
    if (wrapList && tag != nullptr) {
        snprintf(element, sizeof element, "<%sList>", tag);
        socket.writeString(element);
    }
    bool documentOpen = false;
    for (size_t n; (n = source.read(line, sizeof line - 1)) > 0;) {
        line[n] = '\0';
        size_t length = strlen(line);  // a NUL byte from the tool ends the line's text
        if (strncmp(line, "error:", 6) == 0) {
            line[--length] = '\0';  // normally the line break
            const char* text = length >= 7 ? line + 7 : "";
            if (pcCompStr != nullptr && strcmp(text, pcCompStr) == 0) {
                continue;
            }
            if (length > 7) {
                errorText = text;
                hasError = true;
            }
            // and on: the error is written as an element as well
        }
        if (strncmp(line, "---", 3) == 0) {
            if (tag != nullptr) {
                if (documentOpen) {
                    snprintf(element, sizeof element, "</%s><%s>", tag, tag);
                } else {
                    snprintf(element, sizeof element, "<%s>", tag);
                }
                socket.writeString(element);
                documentOpen = true;
            }
            continue;
        }
        if (strncmp(line, "...", 3) == 0) {
            if (documentOpen) {
                snprintf(element, sizeof element, "</%s>", tag);
                socket.writeString(element);
                documentOpen = false;
            }
            continue;
        }
        if (length > 0 && line[length - 1] == '\n') {
            line[--length] = '\0';
        }
        if (strncmp(line, "order: ", 7) == 0) {
            for (int i = 0; i < 20; ++i) {
                if (strcmp(line + 7, kOrderTable[i]) == 0) {
                    snprintf(line, sizeof line, "order: %d", i);
                    break;
                }
            }
        }
        const char* colon = strchr(line, ':');
        if (colon == nullptr) {
            continue;
        }
        int keyLength = static_cast<int>(colon - line);
        const char* value = colon[1] == '\0' ? "" : colon + 2;
        snprintf(element, sizeof element, "<%.*s>%s</%.*s>", keyLength, line, value, keyLength, line);
        socket.writeString(element);
    }
    if (wrapList && tag != nullptr) {
        snprintf(element, sizeof element, "</%sList>", tag);
        socket.writeString(element);
    }
    // A document still open stays open.
    return 0;
}

int DataAgent::xmlizeExt(FILE* input, GUIDataSocket& socket, const char* tag, bool wrapDocuments)
{
    if (input == nullptr && m_backendText == nullptr) {
        return -1;
    }
    LineSource source(input, m_backendText);
    char* line = nullptr;
    size_t lineCapacity = 0;
    char* element = nullptr;
    size_t elementCapacity = 0;
    const size_t lineLimit = static_cast<size_t>(kMaxExtendedLine) + 1;
    const size_t tagLength = tag != nullptr ? strlen(tag) : 0;
    bool documentOpen = false;
    int result = 0;
    for (;;) {
        // Chunks are joined until one ends with a line break, or the input ends.
        size_t length = 0;
        for (;;) {
            if (!reserve(line, lineCapacity, length + kExtendedChunk + 1, lineLimit + kExtendedChunk)) {
                result = -1;
                break;
            }
            size_t n = source.read(line + length, kExtendedChunk);
            length += n;
            if (n == 0 || line[length - 1] == '\n') {
                break;
            }
            if (length > static_cast<size_t>(kMaxExtendedLine)) {
                result = -1;
                break;
            }
        }
        if (result != 0 || length == 0) {
            break;
        }
        line[length] = '\0';
        if (line[length - 1] == '\n') {
            line[--length] = '\0';
        }
        length = strlen(line);
        if (strncmp(line, "---", 3) == 0) {
            if (tag != nullptr && wrapDocuments) {
                if (!reserve(element, elementCapacity, 2 * tagLength + 16, SIZE_MAX)) {
                    result = -1;
                    break;
                }
                snprintf(element, elementCapacity, documentOpen ? "</%s><%s>" : "<%s>", tag, tag);
                socket.writeString(element);
                documentOpen = true;
            }
            continue;
        }
        if (strncmp(line, "...", 3) == 0) {
            if (documentOpen) {
                if (!reserve(element, elementCapacity, tagLength + 16, SIZE_MAX)) {
                    result = -1;
                    break;
                }
                snprintf(element, elementCapacity, "</%s>", tag);
                socket.writeString(element);
                documentOpen = false;
            }
            continue;
        }
        const char* colon = strchr(line, ':');
        if (colon == nullptr) {
            continue;
        }
        if (colon[1] == '\0') {
            result = -1;  // nothing after the colon: the tool's output is broken
            break;
        }
        size_t keyLength = static_cast<size_t>(colon - line);
        size_t size = length + 2 * keyLength + 16;
        if (!reserve(element, elementCapacity, size, SIZE_MAX)) {
            result = -1;
            break;
        }
        snprintf(element, elementCapacity, "<%.*s>%s</%.*s>", static_cast<int>(keyLength), line, colon + 2,
                 static_cast<int>(keyLength), line);
        socket.writeString(element);
    }
    free(line);
    free(element);
    return result;
}

int DataAgent::queryBackend(const char* command, GUIDataSocket& socket, const char* tag, bool& hasError,
                            std::string& errorText, const char* pcCompStr, const char* agentName, bool wrapList,
                            bool extended)
{
    const char* logName = agentName != nullptr ? agentName : "DataAgent";
    if (command == nullptr || tag == nullptr) {
        free(m_backendText);
        m_backendText = nullptr;
        return -1;
    }
    int result = 0;
    BackendPipe backend;
    bool ran = false;
    if (m_backendText == nullptr) {
        ran = openBackend(command, backend);
        if (!ran) {
            m_log.logTrace("%s::queryBackend(%s) failed to run\n", logName, command);
            result = -1;
        }
    }
    if (result == 0) {
        int rc = extended ? xmlizeExt(backend.stream, socket, tag, wrapList)
                          : xmlize(backend.stream, socket, tag, hasError, errorText, pcCompStr, wrapList);
        int ret = ran ? closeBackend(backend) : 0;
        if (rc != 0 || ret != 0) {
            m_log.logTrace("%s::queryBackend(%s) rc %d ret %d\n", logName, command, rc, ret);
            result = -1;
        }
    }
    m_log.logTrace("%s::queryBackend(%s) returning %d\n", logName, command, result);
    free(m_backendText);
    m_backendText = nullptr;
    return result;
}

int DataAgent::invokeBackend(const char* command, std::string& output, const char* agentName)
{
    const char* logName = agentName != nullptr ? agentName : "DataAgent";
    if (command == nullptr) {
        return -1;
    }
    int result = -1;
    BackendPipe backend;
    if (!openBackend(command, backend)) {
        m_log.logError("%s::invokeBackend failed to run\n", logName);
    } else {
        char piece[256];
        for (size_t n; (n = fread(piece, 1, sizeof piece - 1, backend.stream)) > 0;) {
            output.append(piece, n);
        }
        result = closeBackend(backend);
        if (result != 0) {
            m_log.logError("%s::invokeBackend ret %d\n", logName, result);
        }
    }
    m_log.logTrace("%s::invokeBackend, returning %d ", logName, result);
    return result;
}

// ---------------------------------------------------------------------------
// User text bound for command lines

namespace {

const char kPasswordSet[] = ";|\"$!@#%^*-_+";
const char kShellSet[] = ";|\"$!@#%^*-_+()`>?<[]&}{";

void escapeCharacters(std::string& text, const char* set)
{
    std::string escaped;
    escaped.reserve(text.size() * 2);
    for (char c : text) {
        if (c != '\0' && strchr(set, c) != nullptr) {
            escaped += '\\';
        }
        escaped += c;
    }
    text.swap(escaped);
}

// validateFileName's stored messages: constants the caller must not release.
char kInvalidParam[] = "Invalid Input Param\n";
char kInvalidLength[] = "Invalid File Length\n";
char kInvalidExtension[] = "Invalid File Extension\n";
char kInvalidCharacters[] =
    "Invalid Character(s) in File Name\nAcceptable Character Set: {'A...Z', 'a...z', '0...9', '-', '_', '.', "
    "'/'}\n";
char kMalformed[] = "Malformed File Name\n";

bool isFileNameCharacter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
           c == '.' || c == '/';
}

}  // namespace

void DataAgent::escapePassword(std::string& text)
{
    escapeCharacters(text, kPasswordSet);
}

void DataAgent::escapeShellMetaChar(std::string& text)
{
    escapeCharacters(text, kShellSet);
}

bool DataAgent::maskPasswords(const char* request, std::string& masked)
{
    // The calls whose arguments carry a password, and its position (from 0).
    // The local form of adapterUpdate has a slot number there instead: a
    // masked slot in a log line costs nothing.
    static const struct {
        const char* call;
        size_t argument;
    } kCalls[] = {{"adapterConfig(", 6}, {"adapterUpdate(", 4}, {"inventoryUpload(", 4}};
    if (request == nullptr) {
        return false;
    }
    bool found = false;
    for (const auto& c : kCalls) {
        if (strstr(request, c.call) == nullptr) {
            continue;
        }
        if (!found) {
            masked = request;
            found = true;
        }
        for (size_t at = masked.find(c.call); at != std::string::npos; at = masked.find(c.call, at + 1)) {
            // Arguments end at an unescaped comma or the closing parenthesis.
            size_t i = at + strlen(c.call);
            for (size_t argument = 0; argument < c.argument && i < masked.size() && masked[i] != ')'; ++i) {
                if (masked[i] == '\\') {
                    ++i;
                } else if (masked[i] == ',') {
                    ++argument;
                }
            }
            size_t end = i;
            while (end < masked.size() && masked[end] != ',' && masked[end] != ')') {
                end += masked[end] == '\\' ? 2 : 1;
            }
            end = end < masked.size() ? end : masked.size();
            if (i < end) {
                masked.replace(i, end - i, "********");
            }
        }
    }
    return found;
}

void DataAgent::removeQuotesInString(std::string& text)
{
    if (text.empty()) {
        return;
    }
    if (text.front() == '"') {
        text.erase(0, 1);
    }
    if (!text.empty() && text.back() == '"') {
        text.pop_back();
    }
}

int DataAgent::validateFileName(const char* fileName, const char* extension, char** errorText)
{
    if (fileName == nullptr || extension == nullptr || errorText == nullptr) {
        puts("Invalid Input Param");
        if (errorText != nullptr) {
            *errorText = kInvalidParam;
        }
        return -1;
    }
    *errorText = nullptr;
    size_t nameLength = strlen(fileName);
    if (nameLength > 254) {
        puts("Invalid File Length");
        *errorText = kInvalidLength;
        return -1;
    }
    printf("Input: Filename:%s - Extn:%s\n", fileName, extension);
    size_t extensionLength = strlen(extension);
    if (extensionLength > nameLength || strcmp(fileName + nameLength - extensionLength, extension) != 0) {
        puts("Invalid File Extension");
        *errorText = kInvalidExtension;
        return -2;
    }
    for (size_t i = 0; i < nameLength; ++i) {
        if (!isFileNameCharacter(fileName[i])) {
            puts(
                "Invalid Character(s) in File Name.\nAcceptable Character Set: {'A...Z', 'a...z', '0...9', '-', "
                "'_', '.', '/'}");
            *errorText = kInvalidCharacters;
            return -1;
        }
    }
    const char* slash = strrchr(fileName, '/');
    const char* base = slash != nullptr ? slash + 1 : fileName;
    size_t baseLength = strlen(base);
    // Nothing but the extension, or the extension reaching into the folder part.
    bool malformed = baseLength <= extensionLength || base[0] == '-';
    if (!malformed && memchr(base, '.', baseLength - extensionLength) != nullptr) {
        malformed = true;  // a full stop in the stem
    }
    if (malformed) {
        puts("Malformed File Name");
        *errorText = kMalformed;
        return -1;
    }
    puts("Filename Accepted!");
    return 0;
}

int DataAgent::ipv4_conv(char* text)
{
    if (text == nullptr) {
        return 0;
    }
    uint32_t address = 0;
    char* save = nullptr;
    for (char* part = strtok_r(text, ".", &save); part != nullptr; part = strtok_r(nullptr, ".", &save)) {
        address = (address << 8) + gds_strtoul32(part, nullptr, 0);  // saturates like a 32-bit strtoul
    }
    return static_cast<int>(address);
}

int DataAgent::ipv6_conv(const char* text, in6_addr* address)
{
    if (text == nullptr || address == nullptr) {
        return 0;
    }
    return inet_pton(AF_INET6, text, address) == 1 ? 1 : 0;
}
