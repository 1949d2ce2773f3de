#include "videoCaptureAgent.h"

#include <dirent.h>
#include <sys/stat.h>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "AIMClient.h"
#include "ConnectionHandler.h"
#include "DataHandler.h"
#include "GUIDataServer.h"
#include "PlatformRoot.h"
#include "SecurityException.h"
#include "aim_config.h"
#include "safeexec.h"

namespace {

const char kBootPathKey[] = "pm_str_boot_capture_file_path";
const char kBootEnableKey[] = "pm_bool_capture_boot_sequence";
const char kStopOnPostKey[] = "pm_bool_stop_on_bios_post";
const char kCrashEnableKey[] = "pm_bool_enable_crash_video_capture";
const char kCrashDir[] = "/tmp/crashcapture";
const char kVideoDir[] = "/tmp/video";
// The property service's kind of the events this agent raises.
const int kEventKind = 4;
// The scan reports the third recording it meets (or the last of fewer).
const int kScanEntries = 3;

// Copies `text`, cut to fit `size` bytes with its terminator.
void copyText(char* out, size_t size, const char* text)
{
    if (size == 0) {
        return;
    }
    size_t n = strnlen(text, size - 1);
    memcpy(out, text, n);
    out[n] = '\0';
}

}  // namespace

videoCaptureAgent::videoCaptureAgent(DataHandler& handler)
    : DataAgent("videoCaptureAgent", handler),
      m_bootGet(false),
      m_crashGet(false),
      m_bootSet(false),
      m_bootCaptureEnableSet(false),
      m_bootStopOnBiosPostSet(false),
      m_crashSet(false),
      m_crashTriggerSet(false),
      m_crashCaptureEnableSet(false),
      m_bootCaptureEnable(0),
      m_bootStopOnBiosPost(0),
      m_crashCaptureEnable(0),
      m_crashTrigger(0)
{
    m_bootDir[0] = '\0';
    m_crashDir[0] = '\0';
    copyText(m_bootFile, sizeof m_bootFile, "NA");
    copyText(m_crashFile, sizeof m_crashFile, "NA");
    copyText(m_bootTime, sizeof m_bootTime, "NA");
    copyText(m_crashTime, sizeof m_crashTime, "NA");
}

videoCaptureAgent::~videoCaptureAgent() = default;

AIMClient& videoCaptureAgent::aim()
{
    return m_dataHandler->getConnectionHandler()->getServer().getAIMClient();
}

int videoCaptureAgent::initialize()
{
    m_bootGet = false;
    m_crashGet = false;
    m_bootSet = false;
    m_bootCaptureEnableSet = false;
    m_bootStopOnBiosPostSet = false;
    m_crashSet = false;
    m_crashTriggerSet = false;
    m_crashCaptureEnableSet = false;
    m_bootDir[0] = '\0';
    m_crashDir[0] = '\0';
    copyText(m_bootFile, sizeof m_bootFile, "NA");
    copyText(m_crashFile, sizeof m_crashFile, "NA");
    m_status = 1;
    puts(" videoCaptureAgent::initialize exit");
    return m_status;
}

int videoCaptureAgent::preProcessGet(std::string& name, std::string& extra)
{
    if (name == "videoBootCapture") {
        m_bootGet = true;
    } else if (name == "videoCrashCapture") {
        m_crashGet = true;
    }
    return 1;
}

void videoCaptureAgent::scanDirectory(const char* directory, char* file)
{
    printf("opening dir %s \n", directory);
    if (directory[0] != '/') {
        return;  // only controller paths, never the working folder
    }
    DIR* dir = opendir(PlatformRoot::path(directory).c_str());
    if (dir == nullptr) {
        return;
    }
    int copied = 0;
    for (dirent* entry; copied < kScanEntries && (entry = readdir(dir)) != nullptr;) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) {
            continue;
        }
        // Names longer than the field are cut.
        copyText(file, sizeof m_bootFile, entry->d_name);
        printf("Filename %s \n", file);
        ++copied;
    }
    closedir(dir);
}

int videoCaptureAgent::processGet()
{
    AIMClient& client = aim();
    if (m_bootGet) {
        m_status = 1;
        char path[AIMClient::kMaxValue + 1];
        memset(path, 0, sizeof path);
        bool pathRead = client.getProperty(kBootPathKey, path);
        if (pathRead) {
            copyText(m_bootDir, sizeof m_bootDir, path);
            printf("Boot Capture path: %s\n", m_bootDir);
        } else {
            m_status = 2;
            printf("Boot Capture RequestFailed : %d\n", 0);
        }
        bool enabled = false;
        if (client.getProperty(kBootEnableKey, enabled)) {
            m_bootCaptureEnable = enabled ? 1 : 0;
            printf("2 Boot Capture enabled : %d\n", m_bootCaptureEnable);
            bool stop = false;
            if (client.getProperty(kStopOnPostKey, stop)) {
                m_bootStopOnBiosPost = stop ? 1 : 0;
            }
            printf("Boot Capture enabled : %d\n", m_bootCaptureEnable);
            printf("Stop on BIOS post enabled : %d\n", m_bootStopOnBiosPost);
        } else {
            m_status = 2;
            printf("Boot Capture RequestFailed2 : %d\n", 0);
        }
        // Without a path there is nothing to scan: the file stays "NA".
        if (pathRead) {
            scanDirectory(m_bootDir, m_bootFile);
        }
    }
    if (m_crashGet) {
        m_status = 1;
        copyText(m_crashDir, sizeof m_crashDir, kCrashDir);
        bool enabled = false;
        if (!client.getProperty(kCrashEnableKey, enabled)) {
            m_status = 2;
            return m_status;
        }
        m_crashCaptureEnable = enabled ? 1 : 0;
        printf("crash Capture enabled : %d\n", m_crashCaptureEnable);
        scanDirectory(m_crashDir, m_crashFile);
    }
    printf(" videoCaptureAgent::processGet exit status: %d \n", m_status);
    return m_status;
}

int videoCaptureAgent::getFileCreationTime(int kind, char* fileName, char* out)
{
    const char* dir = kind == kBootKind ? m_bootDir : kind == kCrashKind ? m_crashDir : nullptr;
    copyText(out, sizeof m_bootTime, "NA");
    if (dir == nullptr) {
        return -1;
    }
    if (dir[0] != '/' || fileName == nullptr) {
        return 0;
    }
    std::string path = PlatformRoot::path(std::string(dir) + "/" + fileName);
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        return 0;
    }
    char text[64];
    if (ctime_r(&st.st_ctime, text) == nullptr) {
        return 0;
    }
    size_t len = strlen(text);
    if (len > 0 && text[len - 1] == '\n') {
        text[len - 1] = '\0';
    }
    copyText(out, sizeof m_bootTime, text);
    return 0;
}

int videoCaptureAgent::postProcessGet(ConnectionHandler& connection)
{
    fputs(" videoCaptureAgent::postProcessGet", stdout);
    GUIDataSocket& out = connection.getSocket();
    if (m_bootGet) {
        m_bootGet = false;
        if (m_status == 1) {
            getFileCreationTime(kBootKind, m_bootFile, m_bootTime);
            out.writeSimpleElement("bootCaptureEnabled", m_bootCaptureEnable);
            out.writeSimpleElement("bootCaptureDirPath", m_bootDir);
            out.writeSimpleElement("bootCaptureFilename", m_bootFile);
            out.writeSimpleElement("bootCaptureFileCreationTime", m_bootTime);
            out.writeSimpleElement("bootCaptureStopOnPost", m_bootStopOnBiosPost);
        }
    }
    if (m_crashGet) {
        m_crashGet = false;
        if (m_status == 1) {
            getFileCreationTime(kCrashKind, m_crashFile, m_crashTime);
            out.writeSimpleElement("crashCaptureEnabled", m_crashCaptureEnable);
            out.writeSimpleElement("crashCaptureDirPath", m_crashDir);
            out.writeSimpleElement("crashCaptureFilename", m_crashFile);
            out.writeSimpleElement("crashCaptureFileCreationTime", m_crashTime);
        }
    }
    return 1;
}

bool videoCaptureAgent::readSwitch(const RequestToken& token, int& value, int& bad)
{
    std::string text = token.toString();
    char* end = nullptr;
    long v = strtol(text.c_str(), &end, 10);
    if (end == text.c_str() || *end != '\0') {
        bad = -1;  // not a number
        return false;
    }
    if (v != 0 && v != 1) {
        bad = v > INT_MAX ? INT_MAX : v < INT_MIN ? INT_MIN : static_cast<int>(v);
        return false;
    }
    value = static_cast<int>(v);
    return true;
}

int videoCaptureAgent::preProcessSet(std::string& name, TokenMap& tokens)
{
    auto found = tokens.find(name);
    static const std::vector<RequestToken> kNone;
    const std::vector<RequestToken>& arguments = found == tokens.end() ? kNone : found->second;
    int size = static_cast<int>(arguments.size());
    int value = 0;
    int stop = 0;
    int bad = 0;

    // A rejected value changes nothing: its flag stays down, so processSet
    // writes nothing for it.
    if (name == "videoBootCapture") {
        if ((m_dataHandler->getConnectionHandler()->getPrivileges() & kPrivConfig) == 0) {
            throw SecurityException(0, "Insufficient privileges");
        }
        m_log.logInfo("videoCaptureAgent::marker 1\n");
        if (size < 2) {
            m_log.logError("videoCaptureAgent - Wrong data.size (%d)", size);
            return 2;
        }
        if (!readSwitch(arguments[0], value, bad)) {
            m_log.logError("videoCaptureAgent - Wrong values for bootCaptureEnable (%d)\n", bad);
            return 2;
        }
        if (!readSwitch(arguments[1], stop, bad)) {
            m_log.logError("videoCaptureAgent - Wrong values for stopOnBiosPost (%d)\n", bad);
            return 2;
        }
        m_bootSet = true;
        m_bootCaptureEnable = value;
        m_bootStopOnBiosPost = stop;
        return 1;
    }
    if (name == "crashCaptureTrigger") {
        m_log.logInfo("videoCaptureAgent VIDEO_CRASH_CAPTURE_TRIGGER\n");
        m_crashTriggerSet = true;
        m_crashTrigger = 1;
        return 1;
    }

    struct Single {
        const char* name;
        const char* badValue;
        bool videoCaptureAgent::*flag;
        int videoCaptureAgent::*value;
    };
    static const Single kSingles[] = {
        {"videoCrashCapture", "videoCaptureAgent - Wrong values for crashCaptureEnable (%d)\n",
         &videoCaptureAgent::m_crashSet, &videoCaptureAgent::m_crashCaptureEnable},
        {"bootCaptureEnabled", "videoCaptureAgent - Wrong values for bootCaptureEnable (%d)\n",
         &videoCaptureAgent::m_bootCaptureEnableSet, &videoCaptureAgent::m_bootCaptureEnable},
        {"bootCaptureStopOnPost", "videoCaptureAgent - Wrong values for bootCaptureStopOnPost (%d)\n",
         &videoCaptureAgent::m_bootStopOnBiosPostSet, &videoCaptureAgent::m_bootStopOnBiosPost},
        {"crashCaptureEnabled", "videoCaptureAgent - Wrong values for m_crashCaptureEnableSet (%d)\n",
         &videoCaptureAgent::m_crashCaptureEnableSet, &videoCaptureAgent::m_crashCaptureEnable},
    };
    for (const Single& single : kSingles) {
        if (name != single.name) {
            continue;
        }
        if (name == "crashCaptureEnabled") {
            m_log.logInfo("videoCaptureAgent::m_crashCaptureEnableSet \n");
        } else {
            m_log.logInfo("videoCaptureAgent::marker 1\n");
        }
        if (size < 1) {
            m_log.logError("videoCaptureAgent - Wrong data.size (%d)", size);
            return 2;
        }
        if (!readSwitch(arguments[0], value, bad)) {
            m_log.logError(single.badValue, bad);
            return 2;
        }
        this->*single.flag = true;
        this->*single.value = value;
        return 1;
    }
    return 1;
}

bool videoCaptureAgent::setAim(const char* key, int value)
{
    bool ok = aim().setProperty(key, value != 0, true);
    if (!ok) {
        m_status = 2;
    }
    return ok;
}

int videoCaptureAgent::sendAimEvent(const char* event)
{
    char data[128];
    memset(data, 0, sizeof data);
    // long long: time_t is 64 bits on the 32-bit controller, long is not.
    snprintf(data, sizeof data, "vexil_data_%lld", static_cast<long long>(time(nullptr)));
    if (!aim_event_type_occurred(kEventKind, event, static_cast<int>(strlen(data)), data)) {
        printf("\nevent %s could not be generated\n", event);
        return 1;
    }
    return 0;
}

int videoCaptureAgent::processSet()
{
    m_status = 1;
    if (m_bootSet) {
        m_bootSet = false;
        printf("Setting Boot Capture post %d : %d\n", m_bootCaptureEnable, setAim(kBootEnableKey, m_bootCaptureEnable));
        printf("Setting Stop On BIOS post %d : %d\n", m_bootStopOnBiosPost,
               setAim(kStopOnPostKey, m_bootStopOnBiosPost));
    }
    if (m_crashSet) {
        m_crashSet = false;
        printf("Setting AIM for crash %d - %d\n", m_crashCaptureEnable, setAim(kCrashEnableKey, m_crashCaptureEnable));
    }
    if (m_crashTriggerSet) {
        m_crashTriggerSet = false;
        // Only a capture known to be on can be triggered.
        if (m_crashCaptureEnable == 1) {
            m_log.logInfo("Sending the crash trigger \n");
            if (sendAimEvent("event_server_crash") != 0) {
                m_log.logError("Not able to trigger event_server_crash\n");
            }
            m_crashTrigger = 0;
            // Switching the capture off and on again re-arms the recorder; these
            // writes do not change the request's outcome.
            AIMClient& client = aim();
            client.setProperty(kCrashEnableKey, false, true);
            printf("Setting AIM for crash %d\n", 0);
            client.setProperty(kCrashEnableKey, true, true);
        }
    }
    if (m_bootStopOnBiosPostSet) {
        m_bootStopOnBiosPostSet = false;
        bool ok = setAim(kStopOnPostKey, m_bootStopOnBiosPost);
        m_log.logInfo("Setting m_bootStopOnBiosPost %d - %d\n", m_bootStopOnBiosPost, ok);
    }
    if (m_bootCaptureEnableSet) {
        m_bootCaptureEnableSet = false;
        bool ok = setAim(kBootEnableKey, m_bootCaptureEnable);
        m_log.logInfo("Setting BOOT_CAPTURE_SEQUENCE %d - %d\n", m_bootCaptureEnable, ok);
    }
    if (m_crashCaptureEnableSet) {
        m_crashCaptureEnableSet = false;
        bool ok = setAim(kCrashEnableKey, m_crashCaptureEnable);
        m_log.logInfo("Setting CRASH_CAPTURE_ENABLED %d - %d\n", m_crashCaptureEnable, ok);
    }
    return m_status;
}

int videoCaptureAgent::postProcessSet(ConnectionHandler& connection, TokenMap& arguments)
{
    AIMClient& client = aim();
    bool boot = false;
    bool crash = false;
    bool bootOn = client.getProperty(kBootEnableKey, boot) && boot;
    bool crashOn = client.getProperty(kCrashEnableKey, crash) && crash;
    if (bootOn || crashOn) {
        return 1;
    }
    // Neither capture is on: the recorded video goes. The root is checked to
    // be shell-safe; nothing of the request is part of the command.
    if (!PlatformRoot::isShellSafe()) {
        m_log.logError("videoCaptureAgent: platform root unusable in a command line, video kept\n");
        return 1;
    }
    std::string command = "rm -f " + PlatformRoot::path(kVideoDir) + "/*";
    int rc = system_secure(command.c_str());
    if (rc != 0) {
        m_log.logInfo("videoCaptureAgent: \"%s\" ended with %d\n", command.c_str(), rc);
    }
    return 1;
}
