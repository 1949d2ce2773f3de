#include "JNLPDataAgent.h"

#include <dirent.h>
#include <cstdio>
#include <cstring>

#include "AIMClient.h"
#include "AInteger.h"
#include "ConnectionHandler.h"
#include "DataHandler.h"
#include "GUIDataServer.h"
#include "NumberFormatException.h"
#include "PlatformRoot.h"
#include "ProcessingException.h"
#include "SecurityException.h"
#include "aim_config.h"
#include "sm_session.h"

namespace {

// The kind of temporary credentials the console asks the session manager for.
const int kConsoleCredentials = 90;
const char kFieldSeparator = '@';
// Where the console client downloads a Java runtime when it has none.
const char kJavaDownload[] = "http://java.sun.com/products/autodl/j2se";
const char kPackProperty[] = "   <property name=\"jnlp.packEnabled\" value=\"true\"/>";

bool startsWith(const std::string& text, const char* prefix)
{
    return text.compare(0, strlen(prefix), prefix) == 0;
}

// The argument list of a request: what follows the first "(" up to the first
// ")" after it (or the end of the text). False when the text has none.
bool argumentList(const std::string& text, std::string& list)
{
    size_t open = text.find('(');
    if (text.size() < 3 || open == std::string::npos) {
        return false;
    }
    size_t close = text.find(')', open + 1);
    list = text.substr(open + 1, close == std::string::npos ? std::string::npos : close - open - 1);
    return true;
}

// Takes the field in front of the next separator of `rest` when there is a
// separator and the field is not empty; `rest` keeps what follows it.
bool nextField(std::string& rest, std::string& field)
{
    size_t at = rest.find(kFieldSeparator);
    if (at == std::string::npos || at == 0) {
        return false;
    }
    field = rest.substr(0, at);
    rest.erase(0, at + 1);
    return true;
}

// Request values go into the document as XML text: the five markup
// characters are escaped, so an address or a password can never add or
// break elements of the document.
std::string xmlText(const char* value)
{
    std::string out(6 * strlen(value) + 1, '\0');
    out.resize(static_cast<size_t>(GUIDataSocket::doXMLEscape(value, &out[0])));
    return out;
}

std::string xmlText(const std::string& value)
{
    return xmlText(value.c_str());
}

struct NativeLibraries {
    const char* os;
    const char* arch;
    const char* consoleJar;
    const char* mediaJar;
    bool windows;
};

const NativeLibraries kNativeLibraries[] = {
    {"Windows", "x86", "morvaneKVMIOWin32.jar", "morvaneVMWin32.jar", true},
    {"Windows", "amd64", "morvaneKVMIOWin64.jar", "morvaneVMWin64.jar", true},
    {"Windows", "x86_64", "morvaneKVMIOWin64.jar", "morvaneVMWin64.jar", true},
    {"Linux", "x86", "morvaneKVMIOLinux32.jar", "morvaneVMLinux32.jar", false},
    {"Linux", "i386", "morvaneKVMIOLinux32.jar", "morvaneVMLinux32.jar", false},
    {"Linux", "i586", "morvaneKVMIOLinux32.jar", "morvaneVMLinux32.jar", false},
    {"Linux", "i686", "morvaneKVMIOLinux32.jar", "morvaneVMLinux32.jar", false},
    {"Linux", "amd64", "morvaneKVMIOLinux64.jar", "morvaneVMLinux64.jar", false},
    {"Linux", "x86_64", "morvaneKVMIOLinux64.jar", "morvaneVMLinux64.jar", false},
    {"Mac\\ OS\\ X", "x86_64", "morvaneKVMIOMac64.jar", "morvaneVMMac64.jar", false},
};

}  // namespace

JNLPDataAgent::JNLPDataAgent(DataHandler& handler)
    : DataAgent("JNLPAgent", handler),
      m_noVmPrivilege(false),
      m_bootCapture(false),
      m_crashCapture(false),
      m_ipv6(false),
      m_httpsPort(443),
      m_kvmPort(2068),
      m_aimSessionId(0),
      m_aimUserPriv(0),
      m_connPort(443),
      m_genComputeTokens(false),
      m_kvmJnlp(false)
{
}

JNLPDataAgent::~JNLPDataAgent() = default;

AIMClient& JNLPDataAgent::aim()
{
    return m_dataHandler->getConnectionHandler()->getServer().getAIMClient();
}

int JNLPDataAgent::privileges()
{
    return m_dataHandler->getConnectionHandler()->getPrivileges();
}

bool JNLPDataAgent::kvmEnabled()
{
    bool enabled = false;
    // An unreadable switch counts as off.
    return aim().getProperty("vkvm_bool_enabled", enabled) && enabled;
}

int JNLPDataAgent::initialize()
{
    m_noVmPrivilege = false;
    m_bootCapture = false;
    m_crashCapture = false;
    m_ipv6 = false;
    m_ipaddress.clear();
    m_httpsPort = 443;
    m_aimSessionId = 0;
    m_aimUserPriv = 0;
    m_connPort = 443;
    m_cacheVar.clear();
    m_tmpUserName.clear();
    m_tmpPassword.clear();
    m_genComputeTokens = false;
    m_kvmJnlp = false;
    m_status = 1;
    return m_status;
}

int JNLPDataAgent::preProcessGet(std::string& name, std::string& text)
{
    m_status = 1;
    m_log.logInfo("JNLPAgent: preProcess called for %s\n", name.c_str());
    int mask = privileges();

    if (startsWith(name, "viewer.jnlp") || startsWith(name, "bootCapture.jnlp") ||
        startsWith(name, "crashCapture.jnlp")) {
        if ((mask & kPrivKvm) == 0) {
            m_status = 3;
            return m_status;
        }
        m_log.logInfo("JNLPDataAgent::preProcessGet: privilege mask=0x%08X\n", static_cast<unsigned>(mask));
        if (!kvmEnabled()) {
            m_log.logInfo("Disallowing KVM session as kvm is not enabled");
            m_status = 3;
            return m_status;
        }
        m_noVmPrivilege = (mask & kPrivVirtualMedia) == 0;
        m_log.logInfo(m_noVmPrivilege ? "JNLPDataAgent::preProcessGet:KVM start without VM privileges.\n"
                                      : "JNLPDataAgent::preProcessGet:KVM start with VM privileges.\n");
        retrieveViewerParams(text);
        m_bootCapture = startsWith(name, "bootCapture.jnlp");
        m_crashCapture = startsWith(name, "crashCapture.jnlp");
        return m_status;
    }

    if (startsWith(name, "kvm.jnlp")) {
        m_kvmJnlp = true;
        retrieveKvmParams(text);
        return m_status;
    }

    if (startsWith(name, "genComputeTokens")) {
        if (!kvmEnabled()) {
            m_log.logInfo("Disallowing KVM session as kvm is not enabled");
            throw ProcessingException(0, "Tokens cannot be generated as vKVM feature is disabled in BRESK.");
        }
        if ((mask & kPrivTempTokens) == 0) {
            throw SecurityException(0, "Insufficient privileges.");
        }
        m_noVmPrivilege = (mask & kPrivVirtualMedia) == 0;
        m_log.logTrace(m_noVmPrivilege ? "JNLPDataAgent::preProcessGet:KVM start without VM privileges %d.\n"
                                       : "JNLPDataAgent::preProcessGet:KVM start with VM privileges %d.\n",
                       mask);
        m_genComputeTokens = true;
        retrieveComputeParams(text);
        return m_status;
    }

    return m_status;  // "vmStart" and the like: nothing of their own
}

void JNLPDataAgent::retrieveViewerParams(const std::string& text)
{
    // Without an argument list the whole text stands for the address.
    m_ipaddress = text;
    m_cacheVar = text;
    m_aimSessionId = 0;
    std::string ipFormat = "0";
    std::string connPort = "0";
    std::string webSession = "0";
    std::string userPriv;

    std::string list;
    if (argumentList(text, list)) {
        // address, ipFormat, cache token, connection port, web session id,
        // user privilege; the session identifier is the rest.
        std::string fields[6];
        int count = 0;
        while (count < 6 && nextField(list, fields[count])) {
            ++count;
        }
        std::string* targets[6] = {&m_ipaddress, &ipFormat, &m_cacheVar, &connPort, &webSession, &userPriv};
        for (int i = 0; i < count; ++i) {
            *targets[i] = fields[i];
        }
        if (count < 6) {
            m_log.logError("Failed to parse ip format for request: %s  Too few parameters.\n", text.c_str());
            m_status = 2;
        } else {
            m_sessionId = list;
            try {
                m_aimSessionId = AInteger::parseInt(webSession);
                m_aimUserPriv = AInteger::parseInt(userPriv);
                if (AInteger::parseInt(ipFormat) == 1) {
                    m_ipv6 = true;
                }
                m_connPort = AInteger::parseInt(connPort);
            } catch (NumberFormatException&) {
                m_log.logError("Failed to parse ip format for request: %s  NFE exception.\n", text.c_str());
                m_status = 2;
            }
        }
    }
    m_log.logInfo(
        "JNLPDataAgent:: m_ipaddress=%s  ipFormat=%s  m_cacheVar=%s m_connPort=%i\n   m_sessionId=%s m_aimSessionId=%i "
        " "
        "m_aimUserPriv=%i\n",
        m_ipaddress.c_str(), ipFormat.c_str(), m_cacheVar.c_str(), m_connPort, m_sessionId.c_str(), m_aimSessionId,
        m_aimUserPriv);
}

void JNLPDataAgent::retrieveKvmParams(const std::string& text)
{
    // The ports are read later (processGet), so this is the default port.
    m_connPort = m_httpsPort;
    std::string list;
    if (argumentList(text, list)) {
        std::string field;
        bool complete = false;
        if (nextField(list, field)) {
            m_ipaddress = field;
            if (nextField(list, field)) {
                // The password is the rest: it may hold the separator.
                m_tmpUserName = field;
                m_tmpPassword = list;
                complete = true;
            }
        }
        if (!complete) {
            m_log.logError(
                "JNLPDataAgent:retrieveKvmParams Failed to retrieve tokens from the request. Too few parameters.\n");
            m_status = 2;
        }
    }
    m_log.logTrace("JNLPDataAgent:retrieveKvmParams: m_ipaddress=%s, m_tmpUserName=%s \n", m_ipaddress.c_str(),
                   m_tmpUserName.c_str());
}

void JNLPDataAgent::retrieveComputeParams(const std::string& text)
{
    std::string list;
    std::string session;
    if (!argumentList(text, list) || !nextField(list, session)) {
        m_log.logError("Failed to parse aimSessionId and aimUserPriv for request: %s Too few parameters.\n",
                       text.c_str());
        throw ProcessingException(0, "Missing parameters. Internal error processing genComputeTokens request.");
    }
    try {
        m_aimSessionId = AInteger::parseInt(session);
        m_aimUserPriv = AInteger::parseInt(list);
    } catch (NumberFormatException&) {
        m_log.logError("Failed to parse aimSessionId and aimUserPriv for request: %s NFE exception.\n", text.c_str());
        throw ProcessingException(0, "Failed to parse parameters. Internal error processing genComputeTokens request.");
    }
    m_log.logTrace("JNLPDataAgent:retrieveComputeParams: m_aimSessionId=%i m_aimUserPriv=%i\n", m_aimSessionId,
                   m_aimUserPriv);
}

int JNLPDataAgent::processGet()
{
    m_status = 1;
    int port = 0;
    if (aim_config_get_int("webHTTPSPort", &port)) {
        m_httpsPort = port;
    } else if (aim_config_get_int("gui_int_https_port", &port)) {
        m_httpsPort = port;
    } else {
        m_httpsPort = 443;
    }
    m_kvmPort = aim_config_get_int("rp_int_apcp_port", &port) ? port : 2068;
    return m_status;
}

int JNLPDataAgent::postProcessGet(ConnectionHandler& connection)
{
    if (m_status != 1) {
        return m_status;
    }
    if (m_genComputeTokens) {
        writeTokens(connection);
    } else {
        writeDocument(connection);
    }
    return m_status;
}

void JNLPDataAgent::writeTokens(ConnectionHandler& connection)
{
    char user[kCredentialSize];
    char password[kCredentialSize];
    memset(user, 0, sizeof user);
    memset(password, 0, sizeof password);
    int rc = sm_session_get_temp_credentials(kConsoleCredentials, user, password, m_aimSessionId, m_aimUserPriv);
    if (rc != 0) {
        m_log.logError("genComputeTokens: Error while retrieving vKVM session temporary credentials: %i\n", rc);
        throw ProcessingException(
            0, "genComputeTokens: Internal error while generating temp auth tokens for vKVM Session.");
    }
    user[kCredentialSize - 1] = '\0';
    password[kCredentialSize - 1] = '\0';
    connection.getSocket().writeSimpleElement("tmpAuthName", user);
    connection.getSocket().writeSimpleElement("tmpAuthPwd", password);
}

std::string JNLPDataAgent::captureFileName(const char* directory)
{
    char name[kFileNameSize];
    name[0] = '\0';
    m_log.logInfo("opening dir %s \n", directory);
    DIR* dir = opendir(PlatformRoot::path(directory).c_str());
    if (dir == nullptr) {
        return name;  // no recording: the player gets an empty file name
    }
    for (dirent* entry; (entry = readdir(dir)) != nullptr;) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) {
            continue;
        }
        snprintf(name, sizeof name, "%s", entry->d_name);
        m_log.logInfo("Filename %s \n", name);
        break;
    }
    closedir(dir);
    return name;
}

void JNLPDataAgent::writeDocument(ConnectionHandler& connection)
{
    GUIDataSocket& out = connection.getSocket();
    const bool capture = m_bootCapture || m_crashCapture;
    const char* address = m_ipaddress.c_str();

    // Every formatted value has room for 255 characters; longer ones are cut.
    char hostPort[kValueSize];
    char baseUrl[kValueSize];
    char captureUrl[kValueSize];
    char kvmPort[kValueSize];
    const char* scheme = m_connPort == m_httpsPort ? "https://" : "http://";
    snprintf(hostPort, sizeof hostPort, m_ipv6 ? "[%s]:%i" : "%s:%i", address, m_httpsPort);
    snprintf(baseUrl, sizeof baseUrl, m_ipv6 ? "https://[%s]:%i/" : "https://%s:%i/", address, m_httpsPort);
    snprintf(captureUrl, sizeof captureUrl, m_ipv6 ? "%s[%s]:%i/" : "%s%s:%i/", scheme, address, m_connPort);
    snprintf(kvmPort, sizeof kvmPort, "%i", m_kvmPort);
    const char* vmPrivilege = m_noVmPrivilege ? "false" : "true";

    char user[kCredentialSize];
    char password[kCredentialSize];
    memset(user, 0, sizeof user);
    memset(password, 0, sizeof password);
    if (m_kvmJnlp) {
        snprintf(user, sizeof user, "%s", m_tmpUserName.c_str());
        snprintf(password, sizeof password, "%s", m_tmpPassword.c_str());
    } else if (m_tmpUserName.empty() && m_tmpPassword.empty()) {
        // Asked for every document but kvm.jnlp, capture players included,
        // although only the live console writes them into the document.
        int rc = sm_session_get_temp_credentials(kConsoleCredentials, user, password, m_aimSessionId, m_aimUserPriv);
        if (rc != 0) {
            // The console then asks the user to log in.
            m_log.logError("Error while retrieving KVM User Name and Password: %i\n", rc);
            memset(user, 0, sizeof user);
            memset(password, 0, sizeof password);
        }
        user[kCredentialSize - 1] = '\0';
        password[kCredentialSize - 1] = '\0';
    }

    const std::string hp = xmlText(hostPort);
    const std::string base = xmlText(baseUrl);
    const std::string ip = xmlText(m_ipaddress);
    auto line = [&out](const std::string& text) { out.writeString((text + "\n").c_str()); };

    line("<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
    line("<jnlp codebase=\"https://" + hp + "/*\" spec=\"1.0+\">");
    line("<information>");
    line("  <title>Halvric Virtual KVM Console</title>");
    line("  <vendor>Halvric Systems Inc.</vendor>");
    line("   <icon href=\"https://" + hp + "/images/logo.gif\" kind=\"splash\"/>");
    line("   <shortcut online=\"true\"/>");
    line(" </information>");
    line(" <application-desc main-class=\"com.morvane.pellox.kvm.Main\">");
    line("   <argument>title=" + ip + (capture ? " - Offline KVM Console </argument>" : " - KVM Console</argument>"));
    line("   <argument>ip=" + ip + "</argument>");
    line(std::string("   <argument>vmprivilege=") + vmPrivilege + "</argument>");

    if (capture) {
        char fileName[kFileNameSize];
        snprintf(fileName, sizeof fileName, "%s",
                 captureFileName(m_bootCapture ? "/tmp/bootcapture" : "/tmp/crashcapture").c_str());
        line("   <argument>dvrplayer=1</argument>");
        line("   <argument>export=1</argument>");
        line("   <argument>custom=2</argument>");
        line("   <argument>language=en</argument>");
        line("   <argument>-Xmx512M</argument>");
        line("   <argument>-Xms256M</argument>");
        line("   <argument>sessionID=" + xmlText(m_sessionId) + "</argument>");
        line("   <argument>dvcurl=" + xmlText(captureUrl) + (m_bootCapture ? "bootcaptures/" : "crashcaptures/") +
             xmlText(fileName) + "</argument>");
    } else {
        line("   <argument>helpurl=" + base + "help/content/kvm_vm_help.html</argument>");
        line("   <argument>user=" + xmlText(user) + "</argument>");
        line("   <argument>passwd=" + xmlText(password) + "</argument>");
        line(std::string("   <argument>kmport=") + kvmPort + "</argument>");
        line(std::string("   <argument>vport=") + kvmPort + "</argument>");
        static const char* const kFixedArguments[] = {
            "apcp=1",     "power=1",   "nextboot=1",   "vm=1",     "chat=1",   "statusbar=ip,un,fr,bw,kp,enc",
            "tempunpw=1", "version=2", "aimpresent=1", "export=1", "custom=2", "language=en",
            "-Xmx512M",   "-Xms256M",  "dvr=2",
        };
        for (const char* argument : kFixedArguments) {
            line(std::string("   <argument>") + argument + "</argument>");
        }
    }

    line(" </application-desc>");
    line(" <security>");
    line("   <all-permissions/>");
    line(" </security>");
    line(" <update check=\"always\" policy=\"always\" />");
    line(" <resources>");
    line(std::string("   <j2se version=\"1.6.0_14+\" href=\"") + kJavaDownload +
         "\" initial-heap-size=\"256M\" max-heap-size=\"512M\"/>");
    line("   <jar href=\"" + base + "software/morvanePellox.jar\" download=\"eager\" main=\"true\" />");
    line(kPackProperty);
    line(" </resources>");

    if (!capture) {
        for (const NativeLibraries& block : kNativeLibraries) {
            const char* edge = block.windows ? " " : "  ";
            const char* console = block.windows ? "   " : "    ";
            const char* media = block.windows ? "\t" : "\t ";
            line(std::string(edge) + "<resources os=\"" + block.os + "\" arch=\"" + block.arch + "\">");
            line(std::string(console) + "<nativelib href=\"" + base + "software/" + block.consoleJar +
                 "\" download=\"eager\"/>");
            line(kPackProperty);
            line(std::string(media) + "<nativelib href=\"" + base + "software/" + block.mediaJar +
                 "\" download=\"eager\"/>");
            line(kPackProperty);
            line(std::string(edge) + "</resources>");
        }
    }
    line("  </jnlp>");
}

int JNLPDataAgent::preProcessSet(std::string& name, TokenMap& arguments)
{
    return 1;
}

int JNLPDataAgent::processSet()
{
    return 1;
}

int JNLPDataAgent::postProcessSet(ConnectionHandler& connection, TokenMap& arguments)
{
    return 1;
}
