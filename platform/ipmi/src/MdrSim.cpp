#include "MdrSim.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <vector>

#include "PlatformRoot.h"

namespace {

std::string storeDir()
{
    return PlatformRoot::path("/var/mdr");
}

std::string regionDir(int region)
{
    return storeDir() + "/region" + std::to_string(region);
}

std::string faultPath(int cmd)
{
    char name[8];
    snprintf(name, sizeof name, "%02x", cmd & 0xFF);
    return storeDir() + "/faults/" + name;
}

std::string tracePath()
{
    return storeDir() + "/calls.log";
}

bool isDir(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

long long nowMs()
{
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

bool readFile(const std::string& path, std::string& out)
{
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) {
        return false;
    }
    out.clear();
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) {
        out.append(buf, n);
    }
    fclose(f);
    return true;
}

// Writes a whole file through a temporary and a rename, so a reader in
// another process never sees half of it.
bool writeFileAtomic(const std::string& path, const std::string& content)
{
    std::string tmp = path + ".tmp";
    FILE* f = fopen(tmp.c_str(), "wb");
    if (f == nullptr) {
        return false;
    }
    bool ok = fwrite(content.data(), 1, content.size(), f) == content.size();
    ok = (fclose(f) == 0) && ok;
    if (!ok || rename(tmp.c_str(), path.c_str()) != 0) {
        unlink(tmp.c_str());
        return false;
    }
    return true;
}

// Holds the store's lock between processes for its lifetime.
class StoreLock {
public:
    StoreLock()
    {
        if (!isDir(storeDir())) {
            return;
        }
        m_fd = open((storeDir() + "/.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        if (m_fd >= 0 && flock(m_fd, LOCK_EX) != 0) {
            close(m_fd);
            m_fd = -1;
        }
    }
    ~StoreLock()
    {
        if (m_fd >= 0) {
            flock(m_fd, LOCK_UN);
            close(m_fd);
        }
    }
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;
    bool held() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

long long dataSize(int region)
{
    struct stat st;
    if (stat((regionDir(region) + "/data").c_str(), &st) != 0) {
        return 0;
    }
    return st.st_size;
}

int clampInt(long long v, int lo, int hi)
{
    return v < lo ? lo : (v > hi ? hi : static_cast<int>(v));
}

bool loadRegion(int region, MdrSim::Region& r)
{
    if (!isDir(regionDir(region))) {
        return false;
    }
    r = MdrSim::Region();
    bool haveUsed = false;
    std::string text;
    if (readFile(regionDir(region) + "/state", text)) {
        std::istringstream in(text);
        std::string line;
        while (std::getline(in, line)) {
            size_t eq = line.find('=');
            if (eq == std::string::npos) {
                continue;
            }
            std::string key = line.substr(0, eq);
            long long v = strtoll(line.c_str() + eq + 1, nullptr, 0);
            if (key == "valid") {
                r.valid = clampInt(v, 0, 255);
            } else if (key == "counter") {
                r.counter = clampInt(v, 0, 255);
            } else if (key == "lock") {
                r.lock = clampInt(v, 0, 255);
            } else if (key == "session") {
                r.session = clampInt(v, 0, 255);
            } else if (key == "capacity") {
                r.capacity = clampInt(v, 0, MdrSim::kMaxRegionSize);
            } else if (key == "used") {
                r.used = clampInt(v, 0, MdrSim::kMaxRegionSize);
                haveUsed = true;
            } else if (key == "lock_expires_ms") {
                r.lockExpiresMs = v;
            } else if (key == "next_session") {
                r.nextSession = clampInt(v, 1, 255);
            }
        }
    }
    // A hand-made region (the simulated root's) may leave the count out: the
    // data file then is the content.
    if (!haveUsed) {
        r.used = clampInt(dataSize(region), 0, r.capacity);
    }
    // An update that did not complete in time loses its lock.
    if (r.lock != 0 && r.lockExpiresMs != 0 && nowMs() >= r.lockExpiresMs) {
        r.lock = 0;
        r.session = 0;
        r.lockExpiresMs = 0;
    }
    return true;
}

bool saveRegion(int region, const MdrSim::Region& r)
{
    std::ostringstream out;
    out << "valid=" << r.valid << "\ncounter=" << r.counter << "\nlock=" << r.lock << "\nsession=" << r.session
        << "\ncapacity=" << r.capacity << "\nused=" << r.used << "\nlock_expires_ms=" << r.lockExpiresMs
        << "\nnext_session=" << r.nextSession << "\n";
    return writeFileAtomic(regionDir(region) + "/state", out.str());
}

// Reads `count` bytes at `offset`; bytes past the end of the data file are 0.
void readBytes(int region, int offset, unsigned char* out, int count)
{
    memset(out, 0, count);
    int fd = open((regionDir(region) + "/data").c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    int done = 0;
    while (done < count) {
        ssize_t n = pread(fd, out + done, count - done, offset + done);
        if (n <= 0) {
            break;
        }
        done += static_cast<int>(n);
    }
    close(fd);
}

bool writeBytes(int region, int offset, const unsigned char* in, int count)
{
    int fd = open((regionDir(region) + "/data").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        return false;
    }
    bool ok = pwrite(fd, in, count, offset) == count;
    close(fd);
    return ok;
}

bool truncateData(int region, int length)
{
    std::string path = regionDir(region) + "/data";
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        return false;
    }
    bool ok = ftruncate(fd, length) == 0;
    close(fd);
    return ok;
}

// Takes the next queued outcome for `cmd` ("ok" when none is queued).
std::string takeFault(int cmd)
{
    std::string path = faultPath(cmd);
    std::string text;
    if (!readFile(path, text)) {
        return "ok";
    }
    std::istringstream in(text);
    std::vector<std::string> words;
    std::string w;
    while (in >> w) {
        words.push_back(w);
    }
    if (words.empty()) {
        unlink(path.c_str());
        return "ok";
    }
    if (words[0][0] == '*') {
        return words[0].substr(1);
    }
    std::string rest;
    for (size_t i = 1; i < words.size(); ++i) {
        rest += words[i] + " ";
    }
    if (rest.empty()) {
        unlink(path.c_str());
    } else {
        writeFileAtomic(path, rest);
    }
    return words[0];
}

void record(int cmd, int rc, int cc, const unsigned char* req, int reqLen)
{
    std::string path = tracePath();
    if (access(path.c_str(), F_OK) != 0) {
        return;
    }
    char line[256];
    int n = snprintf(line, sizeof line, "%02x rc=%d cc=%02x req=", cmd & 0xFF, rc, cc & 0xFF);
    for (int i = 0; i < reqLen && n < static_cast<int>(sizeof line) - 4; ++i) {
        n += snprintf(line + n, sizeof line - n, i == 0 ? "%02x" : " %02x", req[i]);
    }
    n += snprintf(line + n, sizeof line - n, "\n");
    int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd >= 0) {
        ssize_t ignored = write(fd, line, n);
        (void)ignored;
        close(fd);
    }
}

// Executes one command; fills the completion code and response.
void handle(unsigned char cmd, const unsigned char* req, int reqLen, unsigned char& cc, unsigned char* rsp, int& rspLen)
{
    rspLen = 0;
    MdrSim::Region r;
    switch (cmd) {
        case VKCS_MDR_CMD_STATUS: {
            if (reqLen != 1) {
                cc = VKCS_CC_BAD_LENGTH;
                return;
            }
            if (!loadRegion(req[0], r)) {
                cc = VKCS_CC_NOT_PRESENT;
                return;
            }
            rsp[0] = 1;  // MDR version
            rsp[1] = req[0];
            rsp[2] = static_cast<unsigned char>(r.valid);
            rsp[3] = static_cast<unsigned char>(r.counter);
            rsp[4] = static_cast<unsigned char>(r.lock);
            rsp[5] = r.capacity & 0xFF;
            rsp[6] = (r.capacity >> 8) & 0xFF;
            rsp[7] = r.used & 0xFF;
            rsp[8] = (r.used >> 8) & 0xFF;
            rspLen = 9;
            cc = VKCS_CC_OK;
            return;
        }
        case VKCS_MDR_CMD_COMPLETE: {
            if (reqLen != 2) {
                cc = VKCS_CC_BAD_LENGTH;
                return;
            }
            if (!loadRegion(req[1], r)) {
                cc = VKCS_CC_NOT_PRESENT;
                return;
            }
            if (r.lock == 0 || r.session == 0 || r.session != req[0]) {
                cc = VKCS_CC_REGION_LOCKED;
                return;
            }
            r.lock = 0;
            r.session = 0;
            r.lockExpiresMs = 0;
            r.valid = 1;
            r.counter = MdrSim::nextCounter(r.counter);
            truncateData(req[1], r.used);
            cc = saveRegion(req[1], r) ? VKCS_CC_OK : VKCS_CC_UNSPECIFIED;
            return;
        }
        case VKCS_MDR_CMD_READ: {
            if (reqLen != 4) {
                cc = VKCS_CC_BAD_LENGTH;
                return;
            }
            int count = req[1];
            int offset = req[2] | (req[3] << 8);
            if (count < 1 || count > 32) {
                cc = VKCS_CC_OUT_OF_RANGE;
                return;
            }
            if (!loadRegion(req[0], r)) {
                cc = VKCS_CC_NOT_PRESENT;
                return;
            }
            if (offset + count > r.capacity) {
                cc = VKCS_CC_OUT_OF_RANGE;
                return;
            }
            rsp[0] = static_cast<unsigned char>(count);
            rsp[1] = static_cast<unsigned char>(r.counter);
            readBytes(req[0], offset, rsp + 2, count);
            rspLen = count + 2;
            cc = VKCS_CC_OK;
            return;
        }
        case VKCS_MDR_CMD_WRITE: {
            if (reqLen < 5) {
                cc = VKCS_CC_BAD_LENGTH;
                return;
            }
            int count = req[2];
            int offset = req[3] | (req[4] << 8);
            if (count < 1 || count > 32) {
                cc = VKCS_CC_OUT_OF_RANGE;
                return;
            }
            if (reqLen != count + 5) {
                cc = VKCS_CC_BAD_LENGTH;
                return;
            }
            if (!loadRegion(req[1], r)) {
                cc = VKCS_CC_NOT_PRESENT;
                return;
            }
            if (r.lock == 0 || r.session == 0 || r.session != req[0]) {
                cc = VKCS_CC_REGION_LOCKED;
                return;
            }
            if (offset + count > r.capacity) {
                cc = VKCS_CC_OUT_OF_RANGE;
                return;
            }
            if (!writeBytes(req[1], offset, req + 5, count)) {
                cc = VKCS_CC_UNSPECIFIED;
                return;
            }
            if (offset + count > r.used) {
                r.used = offset + count;
            }
            cc = saveRegion(req[1], r) ? VKCS_CC_OK : VKCS_CC_UNSPECIFIED;
            return;
        }
        case VKCS_MDR_CMD_LOCK: {
            if (reqLen != 5) {
                cc = VKCS_CC_BAD_LENGTH;
                return;
            }
            if (!loadRegion(req[1], r)) {
                cc = VKCS_CC_NOT_PRESENT;
                return;
            }
            bool ownLock = r.session != 0 && r.session == req[0];
            if (r.lock != 0 && !ownLock) {
                cc = VKCS_CC_REGION_LOCKED;
                return;
            }
            int session = r.nextSession;
            r.nextSession = session >= 255 ? 1 : session + 1;
            r.session = session;
            r.lock = req[2] != 0 ? req[2] : 1;
            int timeoutMs = req[3] | (req[4] << 8);
            r.lockExpiresMs = timeoutMs != 0 ? nowMs() + timeoutMs : 0;
            // A new update starts from an empty, invalid region.
            r.valid = 0;
            r.used = 0;
            truncateData(req[1], 0);
            if (!saveRegion(req[1], r)) {
                cc = VKCS_CC_UNSPECIFIED;
                return;
            }
            rsp[0] = static_cast<unsigned char>(session);
            rspLen = 1;
            cc = VKCS_CC_OK;
            return;
        }
        default:
            cc = VKCS_CC_INVALID_COMMAND;
            return;
    }
}

}  // namespace

int MdrSim::exchange(unsigned char cmd, unsigned char* completionCode, vkcs_ipmi_msg_t* msg)
{
    StoreLock lock;
    if (!lock.held()) {
        return -1;  // no IPMI stack: the store is missing
    }
    unsigned char req[VKCS_IPMI_MAX_DATA];
    int reqLen = msg->length;
    memcpy(req, msg->data, sizeof req);

    std::string outcome = takeFault(cmd);
    if (outcome == "fail") {
        record(cmd, -1, *completionCode, req, reqLen > VKCS_IPMI_MAX_DATA ? VKCS_IPMI_MAX_DATA : reqLen);
        return -1;
    }
    if (outcome == "nocc") {
        record(cmd, 0, *completionCode, req, reqLen > VKCS_IPMI_MAX_DATA ? VKCS_IPMI_MAX_DATA : reqLen);
        return 0;
    }
    unsigned char cc = VKCS_CC_OK;
    unsigned char rsp[VKCS_IPMI_MAX_DATA] = {0};
    int rspLen = 0;
    if (outcome.compare(0, 3, "cc=") == 0) {
        cc = static_cast<unsigned char>(strtol(outcome.c_str() + 3, nullptr, 16));
    } else if (reqLen > VKCS_IPMI_MAX_DATA) {
        cc = VKCS_CC_BAD_LENGTH;
    } else {
        handle(cmd, req, reqLen, cc, rsp, rspLen);
        if (outcome.compare(0, 4, "len=") == 0) {
            rspLen = clampInt(atoi(outcome.c_str() + 4), 0, VKCS_IPMI_MAX_DATA);
        }
    }
    record(cmd, 0, cc, req, reqLen > VKCS_IPMI_MAX_DATA ? VKCS_IPMI_MAX_DATA : reqLen);
    *completionCode = cc;
    memcpy(msg->data, rsp, sizeof rsp);
    msg->length = static_cast<unsigned char>(rspLen);
    return 0;
}

bool MdrSim::createRegion(int region, int capacity)
{
    if (region < 0 || region > 255) {
        return false;
    }
    mkdir(PlatformRoot::path("/var").c_str(), 0755);
    mkdir(storeDir().c_str(), 0755);
    StoreLock lock;
    if (!lock.held()) {
        return false;
    }
    if (isDir(regionDir(region))) {
        return true;
    }
    if (mkdir(regionDir(region).c_str(), 0755) != 0) {
        return false;
    }
    Region r;
    r.capacity = clampInt(capacity, 0, kMaxRegionSize);
    return saveRegion(region, r) && truncateData(region, 0);
}

bool MdrSim::biosWrite(int region, const std::string& data, std::string* error)
{
    if (!createRegion(region, kMaxRegionSize)) {
        if (error != nullptr) {
            *error = "cannot create region " + std::to_string(region) + " under " + storeDir();
        }
        return false;
    }
    StoreLock lock;
    Region r;
    if (!lock.held() || !loadRegion(region, r)) {
        if (error != nullptr) {
            *error = "region store not usable";
        }
        return false;
    }
    if (data.size() > static_cast<size_t>(r.capacity)) {
        if (error != nullptr) {
            *error = std::to_string(data.size()) + " bytes do not fit the region's " + std::to_string(r.capacity);
        }
        return false;
    }
    if (!writeFileAtomic(regionDir(region) + "/data", data)) {
        if (error != nullptr) {
            *error = std::string("cannot write region data: ") + strerror(errno);
        }
        return false;
    }
    r.used = static_cast<int>(data.size());
    r.valid = 1;
    r.lock = 0;
    r.session = 0;
    r.lockExpiresMs = 0;
    r.counter = nextCounter(r.counter);
    return saveRegion(region, r);
}

bool MdrSim::readData(int region, std::string& data)
{
    StoreLock lock;
    Region r;
    if (!lock.held() || !loadRegion(region, r)) {
        return false;
    }
    data.assign(r.used, '\0');
    if (r.used > 0) {
        readBytes(region, 0, reinterpret_cast<unsigned char*>(&data[0]), r.used);
    }
    return true;
}

bool MdrSim::status(int region, Region& state)
{
    StoreLock lock;
    return lock.held() && loadRegion(region, state);
}

bool MdrSim::setField(int region, const std::string& key, long long value)
{
    StoreLock lock;
    Region r;
    if (!lock.held() || !loadRegion(region, r)) {
        return false;
    }
    if (key == "valid") {
        r.valid = clampInt(value, 0, 255);
    } else if (key == "counter") {
        r.counter = clampInt(value, 0, 255);
    } else if (key == "lock") {
        r.lock = clampInt(value, 0, 255);
        r.lockExpiresMs = 0;  // a lock set by hand holds until cleared
        if (r.lock == 0) {
            r.session = 0;
        }
    } else if (key == "session") {
        r.session = clampInt(value, 0, 255);
    } else if (key == "capacity") {
        r.capacity = clampInt(value, 0, kMaxRegionSize);
    } else if (key == "used") {
        r.used = clampInt(value, 0, kMaxRegionSize);
    } else {
        return false;
    }
    return saveRegion(region, r);
}

bool MdrSim::setFaults(int cmd, const std::string& outcomes)
{
    mkdir((storeDir() + "/faults").c_str(), 0755);
    StoreLock lock;
    if (!lock.held()) {
        return false;
    }
    if (outcomes.find_first_not_of(" \t\n") == std::string::npos) {
        unlink(faultPath(cmd).c_str());
        return true;
    }
    return writeFileAtomic(faultPath(cmd), outcomes);
}

void MdrSim::clearFaults()
{
    StoreLock lock;
    for (int cmd :
         {VKCS_MDR_CMD_STATUS, VKCS_MDR_CMD_COMPLETE, VKCS_MDR_CMD_READ, VKCS_MDR_CMD_WRITE, VKCS_MDR_CMD_LOCK}) {
        unlink(faultPath(cmd).c_str());
    }
}

bool MdrSim::setTrace(bool on)
{
    StoreLock lock;
    if (!lock.held()) {
        return false;
    }
    if (!on) {
        unlink(tracePath().c_str());
        return true;
    }
    return writeFileAtomic(tracePath(), "");
}

std::string MdrSim::trace()
{
    StoreLock lock;
    std::string text;
    readFile(tracePath(), text);
    return text;
}
