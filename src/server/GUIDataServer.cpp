#include "GUIDataServer.h"

#include <pthread.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "AUtil.h"
#include "CommandLine.h"
#include "ConfigFile.h"
#include "ConnectionManager.h"
#include "DataAgent.h"
#include "PlatformRoot.h"
#include "biosTokenGatherer.h"
#include "gds_number.h"
#include "gds_tlog.h"

#define TLOG(level, fmt, ...) GDS_TLOG(level, "GUIDataServer", fmt, ##__VA_ARGS__)

namespace {
// Reads `text` as a whole base-10 number into `port`; anything else leaves
// `port` unchanged. A number outside 1-65535 is no port at all: it counts
// as not a number (bind would silently take it modulo 65536).
void parsePort(const char* text, int& port)
{
    if (text == nullptr || *text == '\0') {
        return;
    }
    errno = 0;
    char* end = nullptr;
    long v = strtol(text, &end, 10);
    if (*end == '\0' && errno == 0 && v >= 1 && v <= 65535) {
        port = static_cast<int>(v);
    }
}
}  // namespace

GUIDataServer::GUIDataServer()
    : m_log("GUIDataServer"),
      port(8195),
      m_connectionManager(nullptr),
      m_aimClient("webgui", 25225),
      m_baseLog(nullptr),
      m_logFile(nullptr),
      m_helpShown(false)
{
    m_aimClient.setLog(m_log);
    m_aimClient.initialize();
}

GUIDataServer::~GUIDataServer()
{
    // The process never destroys its server; tests and tools that build one
    // get everything back.
    delete m_connectionManager;
    for (auto& entry : handlerTable) {
        delete entry.second;
    }
    handlerTable.clear();
    m_log.setBaseLog(ALog::nullLog());
    if (&ALog::processLog() == m_baseLog) {
        ALog::setProcessLog(nullptr);
    }
    delete m_baseLog;
    if (m_logFile != nullptr) {
        fclose(m_logFile);
    }
}

void GUIDataServer::initialize(int argc, char** argv)
{
    puts("  Processing command line...");
    CommandLine cmdLine(argc, argv);
    if (cmdLine.hasArg("help")) {
        m_helpShown = true;
        showHelp();
        return;
    }

    const char* logOption = cmdLine.getArg("log");
    const char* debugEnv = AUtil::getEnv("MORVANE_DATASERVER_DEBUG", nullptr);
    const char* configOption = cmdLine.getArg("configfile");
    const char* configEnv = AUtil::getEnv("configfile", nullptr);

    const char* configName = "dataserver.conf";
    if (configOption != nullptr) {
        configName = configOption;
    } else if (configEnv != nullptr) {
        configName = configEnv;
    }

    ConfigFile config;
    if (config.open(configName) != 0) {
        printf(" Failed to open config file (%s)!", configName);
        fflush(stdout);
        exit(1);
    }
    config.parse(*this);  // a bad section header ends the parse; start-up goes on

    const char* logName = logOption != nullptr ? logOption : debugEnv;
    if (logName != nullptr) {
        printf(" Writing to log file: %s\n", logName);
        // A file that cannot be opened leaves the log on the console only.
        m_logFile = fopen(logName, "w+");
        m_baseLog = new ALog("DataServer", m_logFile);
    } else {
        m_baseLog = new ALog("DataServer");
    }
    m_log.setBaseLog(*m_baseLog);
    m_baseLog->setEchoToConsole(true);
    m_baseLog->setShowTimestamp(true);
    // Objects log while they are constructed, before they are attached to
    // their parent's log (connection handlers, sockets, agents): those lines
    // go to this log too.
    ALog::setProcessLog(m_baseLog);

    const char* portOption = cmdLine.getArg("port");
    const char* portEnv = AUtil::getEnv("DATA_SERVER_PORT", nullptr);
    TLOG(1, "Found server port settings cmdline(%s) env(%s)\n", portOption ? portOption : "(null)",
         portEnv ? portEnv : "(null)");
    m_log.logInfo("Found server port settings cmdline(%s) env(%s)\n", portOption ? portOption : "(null)",
                  portEnv ? portEnv : "(null)");
    if (portOption != nullptr) {
        TLOG(1, "Setting server port from command line to: %s\n", portOption);
        m_log.logInfo("Setting server port from command line to: %s\n", portOption);
        parsePort(portOption, port);
    } else if (portEnv != nullptr) {
        TLOG(1, "Setting server port from environment to: %s\n", portEnv);
        m_log.logInfo("Setting server port from environment to: %s\n", portEnv);
        parsePort(portEnv, port);
    }

    if (!m_aimClient.initialize()) {
        TLOG(4, "Failed to initialize AIM client.\n");
        m_log.logError("Failed to initialize AIM client.\n");
        throw "Failed to initialize AIM.";
    }
    m_aimClient.setLog(m_log.getParentLog());
    setDefaultProperties();
}

void GUIDataServer::showHelp()
{
    fputs("  The GUI Data Server provide an interface to AIM for.\n", stdout);
    fputs("  The commandline options are as follows:\n", stdout);
    fputs("  \t-help\t Shows this help information\n", stdout);
    fputs("\n", stdout);
    fputs("  Environment variables are as follows:\n", stdout);
    fputs("  \tDATA_SERVER_PORT - specifies the port that listens to connections from the web server\n", stdout);
    fputs("  \tMORVANE_DATASERVER_DEBUG - specifies the debug log file location\n", stdout);
    fputs("  \tMORVANE_DEF_PROP_FILE - file from which to read default properties\n", stdout);
    fputs("\n", stdout);
    fflush(stdout);
}

void GUIDataServer::setConfigContext(std::string& section)
{
    configContext = section;
}

void GUIDataServer::setConfigProperty(std::string& key, std::string& value)
{
    if (key == "addHandler") {
        // A repeated name replaces the earlier entry (and what it had learnt).
        auto it = handlerTable.find(value);
        if (it != handlerTable.end()) {
            delete it->second;
            it->second = new HandlerInfo(value);
        } else {
            handlerTable[value] = new HandlerInfo(value);
        }
        return;
    }
    if (key != "libFile" && key != "entryPoint") {
        return;
    }
    auto it = handlerTable.find(configContext);
    if (it == handlerTable.end()) {
        printf("Unable to locate handler %s\n", configContext.c_str());
        return;
    }
    if (key == "libFile") {
        it->second->libFile = value;
    } else {
        it->second->entryPoint = value;
    }
}

void GUIDataServer::start()
{
    TLOG(2, "Spawn a thread for BIOSTokenGatherer\n");
    pthread_t gatherer;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_create(&gatherer, &attr, biosTokenGatherer, nullptr);  // the result is not checked
    pthread_attr_destroy(&attr);

    TLOG(2, "Starting up GUI Data Server.\n");
    m_log.logInfo("Starting up GUI Data Server.\n");

    m_connectionManager = new ConnectionManager(*this);
    m_connectionManager->setLog(m_log.getParentLog());
    int rc = m_connectionManager->initialize();
    if (rc != 0) {
        TLOG(4, "Exiting due to errors, initialize returned %i.\n", rc);
        m_log.logError("Exiting due to errors, initialize returned %i.\n", rc);
        fflush(stdout);
        exit(1);
    }
    TLOG(2, " Starting to listen for connections.\n");
    m_log.logInfo(" Starting to listen for connections.\n");
    m_log.flush();
    m_connectionManager->acceptConnections();
}

void GUIDataServer::loadPropertyFile(FILE* file, std::vector<std::string>& names, std::vector<std::string>& aimNames,
                                     std::vector<std::string>& types, std::vector<std::string>& values)
{
    if (file == nullptr) {
        return;
    }
    // Lines are read 1023 characters at a time; a longer line is read in
    // pieces, each piece counted and handled as a line of its own.
    char line[1024];
    int lineNumber = 0;
    while (fgets(line, sizeof line, file) != nullptr) {
        ++lineNumber;
        if (line[0] == '#' || line[0] == '\n') {
            continue;
        }
        char* c1 = strchr(line, ',');
        char* c2 = c1 != nullptr ? strchr(c1 + 1, ',') : nullptr;
        char* c3 = c2 != nullptr ? strchr(c2 + 1, ',') : nullptr;
        if (c3 == nullptr) {
            TLOG(4, "Failed to load property definition from line number %i: %s\n", lineNumber, line);
            m_log.logError("Failed to load property definition from line number %i: %s\n", lineNumber, line);
            continue;
        }
        std::string name(line, static_cast<size_t>(c1 - line));
        std::string aimName(c1 + 1, static_cast<size_t>(c2 - c1 - 1));
        std::string type(c2 + 1, static_cast<size_t>(c3 - c2 - 1));
        std::string value(c3 + 1);
        if (!value.empty() && value.back() == '\n') {
            value.pop_back();
        }
        printf(" Adding property definition: %s, %s, %s, %s\n", name.c_str(), aimName.c_str(), type.c_str(),
               value.c_str());
        names.push_back(name);
        aimNames.push_back(aimName);
        types.push_back(type);
        values.push_back(value);
    }
}

void GUIDataServer::setDefaultProperties()
{
    const char* env = getenv("MORVANE_DEF_PROP_FILE");
    std::string fileName =
        env != nullptr ? std::string(env) : PlatformRoot::path("/usr/local/etc/appweb/default.properties");
    TLOG(0, " Attempting to open default properties file: %s\n", fileName.c_str());
    m_log.logTrace(" Attempting to open default properties file: %s\n", fileName.c_str());

    FILE* file = fopen(fileName.c_str(), "r");
    if (file != nullptr) {
        std::vector<std::string> names, aimNames, types, values;
        loadPropertyFile(file, names, aimNames, types, values);
        char buffer[256];
        for (size_t i = 0; i < aimNames.size(); ++i) {
            const char* aimName = aimNames[i].c_str();
            const std::string& type = types[i];
            const std::string& value = values[i];
            if (type == "int") {
                int current;
                if (m_aimClient.getProperty(aimName, current)) {
                    continue;
                }
                // Read as the controller's 32-bit strtol does: saturating.
                char* end = nullptr;
                long n = gds_strtol32(value.c_str(), &end, 10);
                if (*end != '\0') {
                    TLOG(4, "Failed to parse default int value from %s for property: %s\n", value.c_str(), aimName);
                    m_log.logError("Failed to parse default int value from %s for property: %s\n", value.c_str(),
                                   aimName);
                    continue;
                }
                int number = static_cast<int>(n);
                TLOG(2, "Setting property to default: %s=%i\n", aimName, number);
                m_log.logInfo("Setting property to default: %s=%i\n", aimName, number);
                m_aimClient.setProperty(aimName, number, true);
            } else if (type == "bool") {
                bool current;
                if (m_aimClient.getProperty(aimName, current)) {
                    continue;
                }
                bool flag;
                if (value.find("true") != std::string::npos) {
                    flag = true;
                } else if (value.find("false") != std::string::npos) {
                    flag = false;
                } else {
                    TLOG(4, "Failed to parse default bool value from %s for property: %s\n", value.c_str(), aimName);
                    m_log.logError("Failed to parse default bool value from %s for property: %s\n", value.c_str(),
                                   aimName);
                    continue;
                }
                TLOG(2, "Setting property %s to default: %s=%i\n", aimName, value.c_str(), flag ? 1 : 0);
                m_log.logInfo("Setting property %s to default: %s=%i\n", aimName, value.c_str(), flag ? 1 : 0);
                m_aimClient.setProperty(aimName, flag, true);
            } else if (type == "str") {
                memset(buffer, 0, sizeof buffer);
                if (m_aimClient.getProperty(aimName, buffer)) {
                    continue;
                }
                TLOG(2, "Setting property to default: %s=%s\n", aimName, value.c_str());
                m_log.logInfo("Setting property to default: %s=%s\n", aimName, value.c_str());
                m_aimClient.setProperty(aimName, value.c_str(), true);
            } else if (type == "crypt") {
                memset(buffer, 0, sizeof buffer);
                if (m_aimClient.getPropertyCrypt(aimName, buffer)) {
                    continue;
                }
                TLOG(2, "Setting property to default: %s", aimName);  // the value is never logged
                std::string copy = value;
                m_aimClient.setPropertyCrypt(aimName, &copy[0], true);
            }
        }
        fclose(file);
    }
    m_aimClient.setProperty("sysPlatform", static_cast<int>(DataAgent::getPlatform()), true);
}
