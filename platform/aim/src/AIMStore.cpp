#include "AIMStore.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>

#include "PlatformRoot.h"

namespace {
const char kStore[] = "/var/aim";
const char kEventsFile[] = "events.log";
const char kCallsFile[] = "calls.log";
const size_t kMaxFixtureHeader = 64;

// Crypt values are obfuscated, not encrypted: each byte is XORed with this
// key and the result stored as hex. Enough to keep secrets out of plain
// sight in a test root; the controller's own service encrypts them.
const char kCryptKey[] = "gds/aim-stand-in:obfuscation-only";

std::string storePath(const char* sub)
{
    std::string p = PlatformRoot::path(kStore);
    if (sub != nullptr && *sub != '\0') {
        p += '/';
        p += sub;
    }
    return p;
}

// mkdir -p; true when the folder exists afterwards.
bool makeDirs(const std::string& path)
{
    for (size_t pos = 1; pos <= path.size(); ++pos) {
        if (pos == path.size() || path[pos] == '/') {
            std::string prefix = path.substr(0, pos);
            if (mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) {
                return false;
            }
        }
    }
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool fromHex(const char* data, size_t size, std::string& out)
{
    if (size % 2 != 0) {
        return false;
    }
    out.clear();
    out.reserve(size / 2);
    for (size_t i = 0; i < size; i += 2) {
        int hi = hexDigit(data[i]);
        int lo = hexDigit(data[i + 1]);
        if (hi < 0 || lo < 0) {
            return false;
        }
        out.push_back(static_cast<char>(hi * 16 + lo));
    }
    return true;
}

void appendEscaped(std::string& out, unsigned char c)
{
    static const char digits[] = "0123456789ABCDEF";
    out.push_back('%');
    out.push_back(digits[c >> 4]);
    out.push_back(digits[c & 15]);
}

bool needsEscape(unsigned char c)
{
    return c == '%' || c < 0x20 || c == 0x7f;
}

std::string escapeText(const std::string& text)
{
    std::string out;
    out.reserve(text.size());
    for (unsigned char c : text) {
        if (needsEscape(c)) {
            appendEscaped(out, c);
        } else {
            out.push_back(static_cast<char>(c));
        }
    }
    return out;
}

bool unescapeText(const char* data, size_t size, std::string& out)
{
    out.clear();
    for (size_t i = 0; i < size; ++i) {
        if (data[i] != '%') {
            out.push_back(data[i]);
            continue;
        }
        if (size - i < 3) {
            return false;
        }
        int hi = hexDigit(data[i + 1]);
        int lo = hexDigit(data[i + 2]);
        if (hi < 0 || lo < 0) {
            return false;
        }
        out.push_back(static_cast<char>(hi * 16 + lo));
        i += 2;
    }
    return true;
}

std::string obfuscate(const std::string& text)
{
    std::string out = text;
    const size_t keyLength = sizeof kCryptKey - 1;
    for (size_t i = 0; i < out.size(); ++i) {
        out[i] = static_cast<char>(out[i] ^ kCryptKey[i % keyLength]);
    }
    return out;
}

bool parseInt(const std::string& text, int& value)
{
    size_t i = 0;
    bool negative = false;
    if (i < text.size() && text[i] == '-') {
        negative = true;
        ++i;
    }
    if (i == text.size() || text.size() - i > 10) {
        return false;
    }
    long long n = 0;
    for (; i < text.size(); ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return false;
        }
        n = n * 10 + (text[i] - '0');
    }
    if (negative) {
        n = -n;
    }
    if (n < INT_MIN || n > INT_MAX) {
        return false;
    }
    value = static_cast<int>(n);
    return true;
}

std::string now()
{
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    char buf[40];
    snprintf(buf, sizeof buf, "%lld.%06ld", static_cast<long long>(ts.tv_sec), ts.tv_nsec / 1000);
    return buf;
}

bool writeAll(int fd, const char* data, size_t size)
{
    while (size > 0) {
        ssize_t n = write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// The values the service operations read, reused for up to
// PlatformRoot::recheckMs(): a page's get of many properties then reads no
// file. Another process's change (aimctl, a test) is seen within that time;
// this process's writes drop the entry at once. Keyed by the store's host
// path as well, so a switch of the platform root starts afresh.
const size_t kMaxCachedValues = 4096;
struct ValueCache {
    std::mutex mutex;
    std::string store;
    long long since = 0;
    unsigned long writes = 0;  // counts this process's writes
    std::map<std::string, std::pair<AIMStore::Status, AIMStore::Value>> entries;
};

ValueCache& valueCache()
{
    static ValueCache* cache = new ValueCache();  // never destroyed: used by threads until exit
    return *cache;
}

void forgetValue(const std::string& name)
{
    ValueCache& cache = valueCache();
    std::lock_guard<std::mutex> lock(cache.mutex);
    cache.entries.erase(name);
    ++cache.writes;
}

// Reads at most `limit` bytes of a file. errno tells why on failure.
bool readFile(const std::string& path, size_t limit, std::string& out)
{
    out.clear();
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) {
        return false;
    }
    // Read straight into `out`, in pieces of at most 1 KiB: a buffer on the
    // stack would make every property read touch another page of the
    // calling connection thread's stack (properties are short).
    const size_t kPiece = 1024;
    while (out.size() < limit) {
        const size_t have = out.size();
        const size_t want = std::min(kPiece, limit - have);
        out.resize(have + want);
        ssize_t n = read(fd, &out[have], want);
        out.resize(have + (n > 0 ? static_cast<size_t>(n) : 0));
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            int saved = errno;
            close(fd);
            errno = saved;
            return false;
        }
        if (n == 0) {
            break;
        }
    }
    close(fd);
    return true;
}

// Replaces `dir`/`file` atomically: a reader or a process killed at any
// instant sees either the old or the new content, never a mix.
bool atomicWrite(const std::string& dir, const std::string& file, const std::string& content)
{
    std::string tmpl = dir + "/.tmp.XXXXXX";
    int fd = mkostemp(&tmpl[0], O_CLOEXEC);
    if (fd < 0 && errno == ENOENT && AIMStore::ensureFolders()) {
        tmpl = dir + "/.tmp.XXXXXX";
        fd = mkostemp(&tmpl[0], O_CLOEXEC);
    }
    if (fd < 0) {
        return false;
    }
    bool ok = writeAll(fd, content.data(), content.size()) && fchmod(fd, 0644) == 0 && fsync(fd) == 0;
    ok = close(fd) == 0 && ok;
    if (ok) {
        ok = rename(tmpl.c_str(), (dir + "/" + file).c_str()) == 0;
    }
    if (!ok) {
        unlink(tmpl.c_str());
        return false;
    }
    int dfd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        fsync(dfd);
        close(dfd);
    }
    return true;
}
}  // namespace

const char* AIMStore::typeName(Type type)
{
    switch (type) {
        case kInt:
            return "int";
        case kBool:
            return "bool";
        case kStr:
            return "str";
        case kCrypt:
            return "crypt";
        default:
            return "none";
    }
}

AIMStore::Type AIMStore::typeFromName(const std::string& name)
{
    for (Type t : {kInt, kBool, kStr, kCrypt}) {
        if (name == typeName(t)) {
            return t;
        }
    }
    return kNone;
}

const char* AIMStore::statusText(Status status)
{
    switch (status) {
        case kOk:
            return "ok";
        case kAbsent:
            return "no such property";
        case kWrongType:
            return "wrong type";
        case kBadName:
            return "invalid name";
        case kBadValue:
            return "invalid value";
        case kFault:
            return "injected fault";
        case kCorrupt:
            return "unreadable property file";
        default:
            return "store error";
    }
}

bool AIMStore::encodeName(const std::string& name, std::string& encoded)
{
    encoded.clear();
    if (name.empty()) {
        return false;
    }
    for (size_t i = 0; i < name.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(name[i]);
        bool keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
                    c == '-' || (c == '.' && i > 0);
        if (keep) {
            encoded.push_back(static_cast<char>(c));
        } else {
            appendEscaped(encoded, c);
        }
        if (encoded.size() > static_cast<size_t>(kMaxEncodedName)) {
            encoded.clear();
            return false;
        }
    }
    return true;
}

bool AIMStore::decodeName(const std::string& encoded, std::string& name)
{
    std::string decoded;
    std::string again;
    if (!unescapeText(encoded.data(), encoded.size(), decoded) || !encodeName(decoded, again) || again != encoded) {
        return false;
    }
    name = decoded;
    return true;
}

bool AIMStore::makeValue(Type type, const std::string& text, Value& value)
{
    Value v;
    v.type = type;
    switch (type) {
        case kInt: {
            int n = 0;
            if (!parseInt(text, n)) {
                return false;
            }
            v.text = std::to_string(n);
            break;
        }
        case kBool:
            if (text == "1" || text == "true") {
                v.text = "1";
            } else if (text == "0" || text == "false") {
                v.text = "0";
            } else {
                return false;
            }
            break;
        case kStr:
        case kCrypt:
            if (text.size() > static_cast<size_t>(kMaxValue) || text.find('\0') != std::string::npos) {
                return false;
            }
            v.text = text;
            break;
        default:
            return false;
    }
    value = v;
    return true;
}

bool AIMStore::parseValue(const char* data, size_t size, Value& value)
{
    if (data == nullptr) {
        return false;
    }
    const char* nl = static_cast<const char*>(memchr(data, '\n', size));
    if (nl == nullptr) {
        return false;
    }
    Type type = typeFromName(std::string(data, static_cast<size_t>(nl - data)));
    if (type == kNone) {
        return false;
    }
    const char* body = nl + 1;
    size_t length = size - static_cast<size_t>(body - data);
    const char* end = static_cast<const char*>(memchr(body, '\n', length));
    if (end != nullptr) {
        // Only the final line end may follow the value.
        if (end != body + length - 1) {
            return false;
        }
        length -= 1;
    }
    std::string text;
    switch (type) {
        case kInt:
        case kBool:
            text.assign(body, length);
            break;
        case kStr:
            if (!unescapeText(body, length, text)) {
                return false;
            }
            break;
        case kCrypt:
            if (!fromHex(body, length, text)) {
                return false;
            }
            text = obfuscate(text);
            break;
        default:
            return false;
    }
    return makeValue(type, text, value);
}

std::string AIMStore::formatValue(const Value& value)
{
    std::string out = typeName(value.type);
    out += '\n';
    if (value.type == kCrypt) {
        std::string hidden = obfuscate(value.text);
        out += toHex(hidden.data(), hidden.size());
    } else {
        out += escapeText(value.text);
    }
    out += '\n';
    return out;
}

bool AIMStore::parseFixture(const char* data, size_t size, bool& ok, int& code, size_t& outputOffset)
{
    if (data == nullptr) {
        return false;
    }
    const char* nl = static_cast<const char*>(memchr(data, '\n', std::min(size, kMaxFixtureHeader + 1)));
    size_t headerLength = nl != nullptr ? static_cast<size_t>(nl - data) : size;
    if (headerLength > kMaxFixtureHeader) {
        return false;
    }
    std::string header(data, headerLength);
    while (!header.empty() && (header.back() == ' ' || header.back() == '\t' || header.back() == '\r')) {
        header.pop_back();
    }
    if (header == "ok") {
        ok = true;
        code = 0;
    } else if (header == "fail") {
        ok = false;
        code = 1;
    } else if (header.compare(0, 5, "fail ") == 0) {
        int n = 0;
        if (!parseInt(header.substr(5), n) || n == 0) {
            return false;
        }
        ok = false;
        code = n;
    } else {
        return false;
    }
    outputOffset = nl != nullptr ? headerLength + 1 : size;
    return true;
}

bool AIMStore::parseRecord(const std::string& line, Record& record)
{
    std::vector<std::string> fields;
    size_t start = 0;
    while (fields.size() < 5) {
        size_t blank = line.find(' ', start);
        fields.push_back(line.substr(start, blank == std::string::npos ? std::string::npos : blank - start));
        if (blank == std::string::npos) {
            break;
        }
        start = blank + 1;
    }
    if (fields.size() != 4) {
        return false;
    }
    Record r;
    const std::string& time = fields[0];
    size_t dot = time.find('.');
    if (time.empty() || dot == 0 || dot == std::string::npos || dot + 1 == time.size() ||
        time.find_first_not_of("0123456789.") != std::string::npos || time.find('.', dot + 1) != std::string::npos) {
        return false;
    }
    r.time = time;
    if (fields[1] != "-") {
        if (!parseInt(fields[1], r.number)) {
            return false;
        }
        r.hasNumber = true;
    }
    if (!decodeName(fields[2], r.name)) {
        return false;
    }
    if (fields[3] != "-" && (fields[3].empty() || !fromHex(fields[3].data(), fields[3].size(), r.payload))) {
        return false;
    }
    record = r;
    return true;
}

std::string AIMStore::formatRecord(const Record& record)
{
    std::string name;
    encodeName(record.name, name);
    std::string out = record.time;
    out += ' ';
    out += record.hasNumber ? std::to_string(record.number) : "-";
    out += ' ';
    out += name;
    out += ' ';
    out += record.payload.empty() ? "-" : toHex(record.payload.data(), record.payload.size());
    return out;
}

std::string AIMStore::displayText(const std::string& text)
{
    return escapeText(text);
}

std::string AIMStore::toHex(const void* data, size_t size)
{
    static const char digits[] = "0123456789abcdef";
    const unsigned char* p = static_cast<const unsigned char*>(data);
    std::string out;
    out.reserve(size * 2);
    for (size_t i = 0; i < size; ++i) {
        out.push_back(digits[p[i] >> 4]);
        out.push_back(digits[p[i] & 15]);
    }
    return out;
}

bool AIMStore::ensureFolders()
{
    return makeDirs(storePath("props")) && makeDirs(storePath("functions")) && makeDirs(storePath("faults"));
}

void AIMStore::removeStaleTemps(int maxAgeSeconds)
{
    time_t limit = time(nullptr) - maxAgeSeconds;
    for (const char* sub : {"props", "functions"}) {
        std::string dirPath = storePath(sub);
        DIR* dir = opendir(dirPath.c_str());
        if (dir == nullptr) {
            continue;
        }
        while (struct dirent* entry = readdir(dir)) {
            if (strncmp(entry->d_name, ".tmp.", 5) != 0) {
                continue;
            }
            std::string path = dirPath + "/" + entry->d_name;
            struct stat st;
            if (lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && st.st_mtime < limit) {
                unlink(path.c_str());
            }
        }
        closedir(dir);
    }
}

AIMStore::Status AIMStore::read(const std::string& name, Value& value)
{
    std::string encoded;
    if (!encodeName(name, encoded)) {
        return kBadName;
    }
    std::string data;
    if (!readFile(storePath("props") + "/" + encoded, kMaxPropertyFile + 1, data)) {
        return (errno == ENOENT || errno == ENOTDIR) ? kAbsent : kIoError;
    }
    if (data.size() > static_cast<size_t>(kMaxPropertyFile) || !parseValue(data.data(), data.size(), value)) {
        return kCorrupt;
    }
    return kOk;
}

AIMStore::Status AIMStore::write(const std::string& name, const Value& value)
{
    std::string encoded;
    if (!encodeName(name, encoded)) {
        return kBadName;
    }
    Value checked;
    if (!makeValue(value.type, value.text, checked)) {
        return kBadValue;
    }
    const bool written = atomicWrite(storePath("props"), encoded, formatValue(checked));
    forgetValue(name);  // after the write: a read begun before it is not kept
    return written ? kOk : kIoError;
}

AIMStore::Status AIMStore::remove(const std::string& name)
{
    std::string encoded;
    if (!encodeName(name, encoded)) {
        return kBadName;
    }
    const int rc = unlink((storePath("props") + "/" + encoded).c_str());
    const int err = errno;
    forgetValue(name);
    if (rc != 0) {
        return (err == ENOENT || err == ENOTDIR) ? kAbsent : kIoError;
    }
    return kOk;
}

bool AIMStore::list(std::vector<std::pair<std::string, Value>>& properties)
{
    properties.clear();
    DIR* dir = opendir(storePath("props").c_str());
    if (dir == nullptr) {
        return errno == ENOENT;
    }
    std::vector<std::string> names;
    while (struct dirent* entry = readdir(dir)) {
        std::string name;
        // Temp files of writers in progress (or killed) begin with a dot.
        if (entry->d_name[0] != '.' && decodeName(entry->d_name, name)) {
            names.push_back(name);
        }
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        Value value;
        if (read(name, value) == kOk) {
            properties.emplace_back(name, value);
        }
    }
    return true;
}

// A slow property service: "faults/delay" holds the milliseconds (at most a
// minute) every service operation waits before it starts.
static void waitIfSlow()
{
    std::string text;
    if (PlatformRoot::faultText("aim", "delay", text)) {
        long ms = strtol(text.c_str(), nullptr, 10);
        if (ms > 0 && ms <= 60000) {
            usleep(static_cast<useconds_t>(ms) * 1000);
        }
    }
}

bool AIMStore::fault(const char* kind, const char* name)
{
    waitIfSlow();
    std::string file = kind;
    if (name != nullptr) {
        std::string encoded;
        if (!encodeName(name, encoded)) {
            return false;
        }
        file += '.';
        file += encoded;
    }
    std::string text;
    return PlatformRoot::faultText("aim", file.c_str(), text);
}

bool AIMStore::appendRecord(const char* file, const Record& record)
{
    std::string line = formatRecord(record);
    line += '\n';
    std::string path = storePath(file);
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0 && errno == ENOENT && ensureFolders()) {
        fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    }
    if (fd < 0) {
        return false;
    }
    // O_APPEND puts every line at the end; the lock keeps a line whole even
    // if the kernel splits a long write, and orders it against clearRecords.
    bool ok = flock(fd, LOCK_EX) == 0 && writeAll(fd, line.data(), line.size());
    close(fd);
    return ok;
}

bool AIMStore::readRecords(const char* file, std::vector<Record>& records)
{
    records.clear();
    int fd = open(storePath(file).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return errno == ENOENT;
    }
    flock(fd, LOCK_SH);
    std::string data;
    char buf[65536];
    ssize_t n;
    while ((n = ::read(fd, buf, sizeof buf)) != 0) {
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            close(fd);
            return false;
        }
        data.append(buf, static_cast<size_t>(n));
    }
    close(fd);
    size_t start = 0;
    while (start < data.size()) {
        size_t end = data.find('\n', start);
        if (end == std::string::npos) {
            break;  // a line is only complete with its line end
        }
        Record record;
        if (parseRecord(data.substr(start, end - start), record)) {
            records.push_back(record);
        }
        start = end + 1;
    }
    return true;
}

bool AIMStore::readEvents(std::vector<Record>& records)
{
    return readRecords(kEventsFile, records);
}

bool AIMStore::readCalls(std::vector<Record>& records)
{
    return readRecords(kCallsFile, records);
}

bool AIMStore::clearRecords()
{
    bool ok = true;
    for (const char* file : {kEventsFile, kCallsFile}) {
        std::string path = storePath(file);
        int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        if (fd < 0 && errno == ENOENT && ensureFolders()) {
            fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        }
        if (fd < 0) {
            ok = false;
            continue;
        }
        ok = flock(fd, LOCK_EX) == 0 && ftruncate(fd, 0) == 0 && ok;
        close(fd);
    }
    return ok;
}

bool AIMStore::writeFixture(const std::string& name, bool ok, int code, const std::string& output)
{
    std::string encoded;
    if (!encodeName(name, encoded) || (!ok && code == 0)) {
        return false;
    }
    std::string content = ok ? "ok" : (code == 1 ? "fail" : "fail " + std::to_string(code));
    content += '\n';
    content += output;
    return atomicWrite(storePath("functions"), encoded, content);
}

AIMStore::Status AIMStore::getValue(const char* name, Value& value)
{
    std::string encoded;
    if (name == nullptr || !encodeName(name, encoded)) {
        return kBadName;
    }
    if (fault("get", name)) {
        return kFault;
    }
    const int interval = PlatformRoot::recheckMs();
    if (interval == 0) {
        return read(name, value);
    }
    ValueCache& cache = valueCache();
    const std::string store = storePath("props");
    const long long now = PlatformRoot::monotonicMs();
    unsigned long writes = 0;
    {
        std::lock_guard<std::mutex> lock(cache.mutex);
        writes = cache.writes;
        if (cache.store != store || now - cache.since >= interval) {
            cache.entries.clear();
            cache.store = store;
            cache.since = now;
        }
        auto it = cache.entries.find(name);
        if (it != cache.entries.end()) {
            value = it->second.second;
            return it->second.first;
        }
    }
    // Read outside the lock. What was read is kept only when no write of
    // this process landed meanwhile (it might be older than that write).
    Status status = read(name, value);
    if (status == kOk || status == kAbsent || status == kCorrupt) {
        std::lock_guard<std::mutex> lock(cache.mutex);
        // Bounded: a flood of distinct names cannot grow it without end.
        if (cache.store == store && cache.writes == writes && cache.entries.size() < kMaxCachedValues) {
            cache.entries[name] = std::make_pair(status, value);
        }
    }
    return status;
}

AIMStore::Status AIMStore::getInt(const char* name, int& value)
{
    Value v;
    Status status = getValue(name, v);
    if (status != kOk) {
        return status;
    }
    if (v.type == kBool) {
        value = v.text == "1" ? 1 : 0;
        return kOk;
    }
    if (v.type == kInt && parseInt(v.text, value)) {
        return kOk;
    }
    return kWrongType;
}

AIMStore::Status AIMStore::getBool(const char* name, bool& value)
{
    Value v;
    Status status = getValue(name, v);
    if (status != kOk) {
        return status;
    }
    if (v.type == kBool || v.type == kInt) {
        value = v.text != "0";
        return kOk;
    }
    return kWrongType;
}

AIMStore::Status AIMStore::getText(const char* name, std::string& value)
{
    Value v;
    Status status = getValue(name, v);
    if (status != kOk) {
        return status;
    }
    if (v.type == kCrypt) {
        return kWrongType;
    }
    value = v.text;
    return kOk;
}

AIMStore::Status AIMStore::getCrypt(const char* name, std::string& value)
{
    Value v;
    Status status = getValue(name, v);
    if (status != kOk) {
        return status;
    }
    if (v.type != kCrypt) {
        return kWrongType;
    }
    value = v.text;
    return kOk;
}

AIMStore::Status AIMStore::setValue(const char* name, Type type, const std::string& text)
{
    std::string encoded;
    if (name == nullptr || !encodeName(name, encoded)) {
        return kBadName;
    }
    Value value;
    if (!makeValue(type, text, value)) {
        return kBadValue;
    }
    if (fault("set", name)) {
        return kFault;
    }
    return write(name, value);
}

AIMStore::Status AIMStore::setInt(const char* name, int value)
{
    return setValue(name, kInt, std::to_string(value));
}

AIMStore::Status AIMStore::setBool(const char* name, bool value)
{
    return setValue(name, kBool, value ? "1" : "0");
}

AIMStore::Status AIMStore::setText(const char* name, const char* value)
{
    if (value == nullptr) {
        return kBadValue;
    }
    return setValue(name, kStr, value);
}

AIMStore::Status AIMStore::setCrypt(const char* name, const char* value)
{
    if (value == nullptr) {
        return kBadValue;
    }
    return setValue(name, kCrypt, value);
}

AIMStore::Status AIMStore::raiseEvent(const int* kind, const char* name, const void* data, int length)
{
    std::string encoded;
    if (name == nullptr || !encodeName(name, encoded)) {
        return kBadName;
    }
    if (length < 0 || length > kMaxPayload || (length > 0 && data == nullptr)) {
        return kBadValue;
    }
    if (fault("event", name)) {
        return kFault;
    }
    Record record;
    record.time = now();
    record.hasNumber = kind != nullptr;
    record.number = kind != nullptr ? *kind : 0;
    record.name = name;
    if (length > 0) {
        record.payload.assign(static_cast<const char*>(data), static_cast<size_t>(length));
    }
    return appendRecord(kEventsFile, record) ? kOk : kIoError;
}

int AIMStore::callFunction(const char* name, const void* in, int inLength, void* out, int outCapacity, int* outLength,
                           const int* timeout)
{
    waitIfSlow();
    if (outLength != nullptr) {
        *outLength = 0;
    }
    std::string encoded;
    if (name == nullptr || !encodeName(name, encoded) || inLength < 0 || inLength > kMaxPayload ||
        (inLength > 0 && in == nullptr) || outCapacity < 0 || (outCapacity > 0 && out == nullptr)) {
        return kBadArguments;
    }
    Record record;
    record.time = now();
    record.hasNumber = timeout != nullptr;
    record.number = timeout != nullptr ? *timeout : 0;
    record.name = name;
    if (inLength > 0) {
        record.payload.assign(static_cast<const char*>(in), static_cast<size_t>(inLength));
    }
    if (!appendRecord(kCallsFile, record)) {
        return kStoreError;
    }
    std::string data;
    if (!readFile(storePath("functions") + "/" + encoded, kMaxFixtureHeader + 1 + static_cast<size_t>(outCapacity),
                  data)) {
        return (errno == ENOENT || errno == ENOTDIR) ? kUnknownFunction : kStoreError;
    }
    bool ok = false;
    int code = 0;
    size_t offset = 0;
    if (!parseFixture(data.data(), data.size(), ok, code, offset)) {
        return kBadFixture;
    }
    if (!ok) {
        return code;
    }
    size_t n = std::min(data.size() - offset, static_cast<size_t>(outCapacity));
    if (n > 0) {
        memcpy(out, data.data() + offset, n);
    }
    if (outLength != nullptr) {
        *outLength = static_cast<int>(n);
    }
    return 0;
}
