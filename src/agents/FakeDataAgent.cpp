#include "FakeDataAgent.h"

#include <cstdio>
#include <cstring>
#include <map>

#include "ConnectionHandler.h"
#include "GUIDataSocket.h"

namespace {

// ---------------------------------------------------------------------------
// The canned data, all of it in this one block. Values that describe the
// simulated host (sim/root: /etc/product, default.properties) are the same
// here; a test compares them with default.properties.
// ---------------------------------------------------------------------------
const char kProductName[] = "Simulated Rack Server";  // product_name
const char kSerialNumber[] = "SIM0001";               // serial_number
const char kHostName[] = "sim-bmc";                   // net_hostname
const char kFirmware[] = "4.1(1a)";                   // fw_version
const char kMacAddress[] = "02:00:00:00:00:01";       // net_mac
const char kIpAddress[] = "192.0.2.10";               // net_ipv4_address
const char kNetMask[] = "255.255.255.0";              // net_ipv4_netmask
const char kGateway[] = "192.0.2.1";                  // net_ipv4_gateway
const char kDns1[] = "192.0.2.53";                    // net_dns1
// As the simulated SMBIOS host (/var/smbios/host.json) describes it.
const char kSystemUuid[] = "4C4C4544-0042-3510-8052-B3C04F4B3132";
const char kCpuModel[] = "Intel(R) Xeon(R) Gold 6248 CPU @ 2.50GHz";

// One-line fragments: name, indent (blanks), value.
struct Single {
    const char* name;
    int indent;
    const char* value;
};

const Single kSingles[] = {
    {"pwState", 3, "0"},
    {"sysProductName", 3, kProductName},
    {"sysSerialNum", 3, kSerialNumber},
    {"LocatorLEDState", 3, "0"},
    {"hostname", 3, kHostName},
    {"currentTime", 3, "Fri Mar  1 10:15:00 2024"},
    {"fwVersion", 3, kFirmware},
    {"fwUpdated", 3, "Thu Feb 29 18:30:00 2024"},
    {"UUID", 3, kSystemUuid},
    {"snmpCommunity", 4, "public"},
    {"snmpTrapDest1Ena", 4, "1"},
    {"snmpTrapDest2Ena", 4, "0"},
    {"snmpTrapDest3Ena", 4, "0"},
    {"snmpTrapDest4Ena", 4, "0"},
    {"snmpTrapIP1", 4, "192.0.2.162"},
    {"snmpTrapIP2", 4, "0.0.0.0"},
    {"snmpTrapIP3", 4, "0.0.0.0"},
    {"snmpTrapIP4", 4, "0.0.0.0"},
    {"kvmEnabled", 4, "1"},
    {"kvmEncEnabled", 4, "1"},
    {"kvmMaxSessions", 4, "4"},
    {"kvmActSes", 4, "0"},
    {"localVideo", 4, "1"},
    {"kvmPort", 4, "2068"},
    {"vmEnabled", 4, "1"},
    {"vmMaxSessions", 4, "1"},
    {"vmActSes", 4, "0"},
    {"vmEncEnabled", 4, "1"},
    {"vmFloppyEmul", 4, "0"},
    {"serialOverLanEnabled", 4, "0"},
    {"LDAPServerIP", 4, "192.0.2.20"},
    {"LDAPEnabled", 4, "0"},
    {"LDAPBaseDN", 4, "dc=example,dc=invalid"},
    {"LDAPTimeout", 4, "60"},
    {"netMode", 4, "dedicated"},
    {"cardSlot", 4, "0"},
    {"v4DHCPServers", 4, kGateway},
    {"v4DNS1", 4, kDns1},
    {"v4DNS2", 4, "0.0.0.0"},
    {"vlan", 4, "0"},
    {"vlanID", 4, "1"},
    {"vlanPriority", 4, "0"},
    {"webHTTPPort", 4, "80"},
    {"webHTTPSPort", 4, "443"},
    {"webTimeout", 4, "1800"},
    {"webMaxSessions", 4, "4"},
    {"webSessionCount", 4, "1"},
    {"sshPort", 4, "22"},
    {"sshTimeout", 4, "1800"},
    {"sshMaxSessions", 4, "4"},
    {"sshSessionCount", 4, "0"},
    {"ipmiLAN", 4, "1"},
    {"ipmiMinPriv", 4, "admin"},
    {"ipmiKey", 4, "0000000000000000000000000000000000000000"},
};

// The network block's names and values, in block order.
const char* const kNetwork[][2] = {
    {"macAddr", kMacAddress}, {"v4Enabled", "1"},      {"v4DHCPEnabled", "0"},
    {"v4IPAddr", kIpAddress}, {"v4NetMask", kNetMask}, {"v4Gateway", kGateway},
};

// Sensor lists: name, status, reading, units, lower and upper critical.
struct Sensor {
    const char* name;
    const char* status;
    const char* reading;
    const char* units;
    const char* lower;
    const char* upper;
};
const Sensor kPowerSensors[] = {{"PSU1_PIN", "Normal", "126", "Watts", "0", "900"},
                                {"PSU2_PIN", "Normal", "124", "Watts", "0", "900"}};
const Sensor kFanSensors[] = {{"FAN1_SPEED", "Normal", "5000", "RPM", "600", "N/A"},
                              {"FAN2_SPEED", "Normal", "5100", "RPM", "600", "N/A"}};
const Sensor kVoltageSensors[] = {{"P12V", "Normal", "12.10", "Volts", "10.80", "13.20"},
                                  {"P3V3", "Normal", "3.31", "Volts", "2.97", "3.63"}};
const Sensor kTemperatureSensors[] = {{"AMBIENT_TEMP", "Normal", "22", "degrees C", "N/A", "45"},
                                      {"CPU1_TEMP", "Normal", "45", "degrees C", "N/A", "95"}};

typedef std::vector<std::string> Lines;

Lines sensorList(const Sensor* sensors, size_t count)
{
    Lines out = {"   <powerOn></powerOn>", "   <sensorList>"};
    for (size_t i = 0; i < count; ++i) {
        const Sensor& s = sensors[i];
        out.push_back("      <sensor>");
        out.push_back(std::string("         <name>") + s.name + "</name>");
        out.push_back(std::string("         <status>") + s.status + "</status>");
        out.push_back(std::string("         <reading>") + s.reading + "</reading>");
        out.push_back(std::string("         <units>") + s.units + "</units>");
        out.push_back(std::string("         <lowerCritical>") + s.lower + "</lowerCritical>");
        out.push_back(std::string("         <upperCritical>") + s.upper + "</upperCritical>");
        out.push_back("      </sensor>");
    }
    out.push_back("   </sensorList>");
    return out;
}

// A list element of entries, each a set of (field, value) pairs.
typedef std::vector<std::pair<const char*, std::string>> Fields;

Lines list(const char* listName, const char* entryName, const std::vector<Fields>& entries)
{
    Lines out = {std::string("   <") + listName + ">"};
    for (const Fields& fields : entries) {
        out.push_back(std::string("      <") + entryName + ">");
        for (const auto& f : fields) {
            out.push_back(std::string("         <") + f.first + ">" + f.second + "</" + f.first + ">");
        }
        out.push_back(std::string("      </") + entryName + ">");
    }
    out.push_back(std::string("   </") + listName + ">");
    return out;
}

// The sample certificate: every line of the dump ends with a line break
// inside the element's text.
Lines certificate()
{
    std::string cn = std::string(kHostName);
    Lines out = {"   <certificate>"};
    const std::string dump[] = {
        "Serial Number: 5A:1C:00:00:00:00:00:01",
        "Subject Information:",
        "        Country Code (CC): US",
        "        State (S): California",
        "        Locality (L): San Jose",
        "        Organization (O): Example Systems",
        "        Organizational Unit (OU): Simulated Controllers",
        "        Common Name (CN): " + cn,
        "Issuer Information:",
        "        Country Code (CC): US",
        "        State (S): California",
        "        Locality (L): San Jose",
        "        Organization (O): Example Systems",
        "        Organizational Unit (OU): Simulated Controllers",
        "        Common Name (CN): " + cn,
        "Valid From: Mar  1 00:00:00 2024 GMT",
        "Valid To: Feb 26 00:00:00 2034 GMT",
    };
    for (const std::string& line : dump) {
        out.push_back(line + "\n");
    }
    out.push_back("   </certificate>");
    return out;
}

struct Table {
    std::vector<std::string> names;  // the 83, in test order
    std::map<std::string, Lines> fragments;
    std::map<std::string, int> network;  // name -> block position
    Lines networkLines;                  // by block position
};

Table buildTable()
{
    Table t;
    std::map<std::string, Lines>& f = t.fragments;
    for (const Single& s : kSingles) {
        f[s.name] = {std::string(static_cast<size_t>(s.indent), ' ') + "<" + s.name + ">" + s.value + "</" + s.name +
                     ">"};
    }
    f["inventoryCPU"] =
        list("CPUList", "CPU",
             {{{"Name", "CPU 1"}, {"Model", kCpuModel}, {"Cores", "20"}, {"Speed", "2500"}, {"Status", "Enabled"}},
              {{"Name", "CPU 2"}, {"Model", kCpuModel}, {"Cores", "20"}, {"Speed", "2500"}, {"Status", "Enabled"}}});
    f["inventoryMemory"] =
        list("DIMMList", "DIMM",
             {{{"Name", "DIMM 1"}, {"Capacity", "2048"}, {"Speed", "1066"}, {"MemoryType", "DDR-3 RAM"}},
              {{"Name", "DIMM 2"}, {"Capacity", "2048"}, {"Speed", "1066"}, {"MemoryType", "DDR-3 RAM"}}});
    f["inventoryFan"] = list("FanList", "Fan",
                             {{{"Name", "FAN 1"}, {"Location", "Front"}, {"Status", "Present"}},
                              {{"Name", "FAN 2"}, {"Location", "Front"}, {"Status", "Present"}}});
    f["inventoryPSU"] = list("PSUList", "PSU",
                             {{{"Name", "PSU 1"}, {"Model", "SIM-PSU-770W"}, {"Power", "770"}, {"Status", "Present"}},
                              {{"Name", "PSU 2"}, {"Model", "SIM-PSU-770W"}, {"Power", "770"}, {"Status", "Present"}}});
    f["powerSupplies"] = sensorList(kPowerSensors, 2);
    f["fans"] = sensorList(kFanSensors, 2);
    f["voltages"] = sensorList(kVoltageSensors, 2);
    f["temperatures"] = sensorList(kTemperatureSensors, 2);
    f["psRedundancy"] = list("discreteSensorList", "sensor",
                             {{{"name", "PSU_REDUNDANCY"}, {"status", "Normal"}, {"reading", "Fully Redundant"}}});
    f["fansRedundancy"] = list("discreteSensorList", "sensor",
                               {{{"name", "FAN_REDUNDANCY"}, {"status", "Normal"}, {"reading", "Fully Redundant"}}});
    f["eventLogEntries"] = list("eventLog", "entry",
                                {{{"id", "1"},
                                  {"time", "Fri Mar  1 09:59:12 2024"},
                                  {"severity", "Informational"},
                                  {"description", "System Event Log cleared"}},
                                 {{"id", "2"},
                                  {"time", "Fri Mar  1 10:02:40 2024"},
                                  {"severity", "Warning"},
                                  {"description", "PSU2_PIN: upper non-critical threshold crossed"}}});
    f["traceLogEntries"] = list("traceLog", "entry",
                                {{{"id", "1"},
                                  {"time", "Fri Mar  1 10:00:03 2024"},
                                  {"source", "webserver"},
                                  {"description", "Session opened for user admin from 192.0.2.100"}},
                                 {{"id", "2"},
                                  {"time", "Fri Mar  1 10:14:51 2024"},
                                  {"source", "sshd"},
                                  {"description", "Session closed for user operator"}}});
    Lines pef = {"   <PEFglobal>1</PEFglobal>"};
    Lines filters = list("PEFList", "PEF",
                         {{{"id", "1"}, {"name", "Temperature Critical Assert"}, {"enabled", "1"}, {"action", "alert"}},
                          {{"id", "2"}, {"name", "Voltage Critical Assert"}, {"enabled", "1"}, {"action", "alert"}},
                          {{"id", "3"}, {"name", "Power Supply Failure"}, {"enabled", "0"}, {"action", "none"}}});
    pef.insert(pef.end(), filters.begin(), filters.end());
    f["getPEF"] = pef;
    f["users"] = list("userList", "user",
                      {{{"id", "1"}, {"enabled", "1"}, {"name", "admin"}, {"role", "admin"}},
                       {{"id", "2"}, {"enabled", "1"}, {"name", "operator"}, {"role", "user"}}});
    f["activeSessions"] = list("sessionList", "session",
                               {{{"id", "1"}, {"user", "admin"}, {"ipAddress", "192.0.2.100"}, {"type", "webgui"}}});
    Lines cert = certificate();
    for (const char* name :
         {"certificate", "commonName", "orgName", "orgUnit", "locality", "stateName", "countryCode", "email"}) {
        f[name] = cert;
    }
    for (int i = 0; i < static_cast<int>(sizeof kNetwork / sizeof kNetwork[0]); ++i) {
        const std::string name = kNetwork[i][0];
        t.network[name] = i;
        t.networkLines.push_back("\t\t <" + name + ">" + kNetwork[i][1] + "</" + name + ">");
    }

    // The order in which the interface's pages are tested.
    t.names = {"pwState",
               "sysProductName",
               "sysSerialNum",
               "LocatorLEDState",
               "hostname",
               "currentTime",
               "fwVersion",
               "fwUpdated",
               "UUID",
               "inventoryCPU",
               "inventoryMemory",
               "inventoryFan",
               "inventoryPSU",
               "powerSupplies",
               "psRedundancy",
               "fans",
               "fansRedundancy",
               "voltages",
               "temperatures",
               "eventLogEntries",
               "getPEF",
               "snmpCommunity",
               "snmpTrapDest1Ena",
               "snmpTrapDest2Ena",
               "snmpTrapDest3Ena",
               "snmpTrapDest4Ena",
               "snmpTrapIP1",
               "snmpTrapIP2",
               "snmpTrapIP3",
               "snmpTrapIP4",
               "kvmEnabled",
               "kvmEncEnabled",
               "kvmMaxSessions",
               "kvmActSes",
               "localVideo",
               "kvmPort",
               "vmEnabled",
               "vmMaxSessions",
               "vmActSes",
               "vmEncEnabled",
               "vmFloppyEmul",
               "serialOverLanEnabled",
               "users",
               "activeSessions",
               "LDAPServerIP",
               "LDAPEnabled",
               "LDAPBaseDN",
               "LDAPTimeout",
               "netMode",
               "cardSlot",
               "macAddr",
               "v4Enabled",
               "v4DHCPEnabled",
               "v4IPAddr",
               "v4NetMask",
               "v4Gateway",
               "v4DHCPServers",
               "v4DNS1",
               "v4DNS2",
               "vlan",
               "vlanID",
               "vlanPriority",
               "webHTTPPort",
               "webHTTPSPort",
               "webTimeout",
               "webMaxSessions",
               "webSessionCount",
               "sshPort",
               "sshTimeout",
               "sshMaxSessions",
               "sshSessionCount",
               "ipmiLAN",
               "ipmiMinPriv",
               "ipmiKey",
               "certificate",
               "commonName",
               "orgName",
               "orgUnit",
               "locality",
               "stateName",
               "countryCode",
               "email",
               "traceLogEntries"};
    return t;
}

// Built once, on first use (thread-safe static initialisation); read-only
// afterwards, so every connection thread may read it.
const Table& table()
{
    static const Table t = buildTable();
    return t;
}

}  // namespace

FakeDataAgent::FakeDataAgent(DataHandler& handler) : DataAgent("FakeDataAgent", handler)
{
    memset(m_network, 0, sizeof m_network);
}

FakeDataAgent::~FakeDataAgent() {}

const std::vector<std::string>& FakeDataAgent::knownNames()
{
    return table().names;
}

bool FakeDataAgent::isKnown(const std::string& name)
{
    return table().fragments.count(name) != 0 || table().network.count(name) != 0;
}

int FakeDataAgent::initialize()
{
    memset(m_network, 0, sizeof m_network);
    m_requested.clear();
    return 1;
}

int FakeDataAgent::preProcessGet(std::string& name, std::string& extra)
{
    printf("FakeDataAgent: %s name = %s\n", "preProcessGet", name.c_str());
    m_requested.push_back(name);
    return 1;
}

int FakeDataAgent::processGet()
{
    printf("FakeDataAgent: %s\n", "processGet");
    m_status = 1;
    return 1;
}

int FakeDataAgent::postProcessGet(ConnectionHandler& connection)
{
    printf("FakeDataAgent: %s\n", "postProcessGet");
    fflush(stdout);
    if (m_status != 1) {
        return 1;
    }
    GUIDataSocket& socket = connection.getSocket();
    const Table& t = table();
    for (const std::string& name : m_requested) {
        auto net = t.network.find(name);
        if (net != t.network.end()) {
            m_network[net->second] = true;  // answered in the block below
            continue;
        }
        auto it = t.fragments.find(name);
        if (it == t.fragments.end()) {
            continue;  // not a canned name: nothing, and no failure
        }
        for (const std::string& line : it->second) {
            socket.writeString(line.c_str());
        }
    }
    bool any = false;
    for (int i = 0; i < kNetworkNames; ++i) {
        any = any || m_network[i];
    }
    if (any) {
        socket.writeString("\t <netConfig>");
        socket.writeString("\t\t<ifConfig>");
        for (int i = 0; i < kNetworkNames; ++i) {
            if (m_network[i]) {
                socket.writeString(t.networkLines[static_cast<size_t>(i)].c_str());
            }
        }
        socket.writeString("\t\t</ifConfig>");
        socket.writeString("\t </netConfig>");
    }
    return 1;
}

int FakeDataAgent::preProcessSet(std::string& name, TokenMap& arguments)
{
    return 1;
}

int FakeDataAgent::processSet()
{
    return 1;
}

int FakeDataAgent::postProcessSet(ConnectionHandler& connection, TokenMap& arguments)
{
    return 1;
}
