// The SMBIOS import checked against a reference decoder: small tables built
// byte by byte are decoded by Debian's dmidecode (--from-dump), and the raw
// table reader must describe the same host from the bytes as the text reader
// does from dmidecode's text. A few decoded values anchor both.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "DmidecodeTextReader.h"
#include "HostDescription.h"
#include "SmbiosTableReader.h"
#include "TestRoot.h"

namespace {

std::string le(unsigned long long v, int bytes)
{
    std::string s;
    for (int i = 0; i < bytes; i++) {
        s += static_cast<char>((v >> (8 * i)) & 0xff);
    }
    return s;
}

// One structure: `length` bytes of formatted part (header included), then strings.
struct Rec {
    std::string data;
    std::vector<std::string> strings;
    Rec(int type, int handle, int length, std::vector<std::string> s = {}) : data(length, '\0'), strings(s)
    {
        data[0] = static_cast<char>(type);
        data[1] = static_cast<char>(length);
        data.replace(2, 2, le(handle, 2));
    }
    Rec& b(size_t at, unsigned v) { return put(at, le(v, 1)); }
    Rec& w(size_t at, unsigned v) { return put(at, le(v, 2)); }
    Rec& d(size_t at, unsigned long long v) { return put(at, le(v, 4)); }
    Rec& put(size_t at, const std::string& bytes)
    {
        if (at + bytes.size() <= data.size()) {
            data.replace(at, bytes.size(), bytes);
        }
        return *this;
    }
    std::string bytes() const
    {
        std::string out = data;
        for (const std::string& s : strings) {
            out += s + '\0';
        }
        return out + (strings.empty() ? std::string(2, '\0') : std::string(1, '\0'));
    }
};

Rec processor(int handle, const char* socket, unsigned family, unsigned eax, unsigned status, unsigned cores)
{
    Rec r(4, handle, 0x30, {socket, "Intel(R) Corporation", "Intel(R) Xeon(R) Gold 6248 CPU @ 2.50GHz"});
    if (family == 0x6B) {
        r.strings = {socket, "Advanced Micro Devices, Inc.", "AMD EPYC 7302 16-Core Processor"};
    }
    r.b(0x04, 1).b(0x05, 3).b(0x06, family).b(0x07, 2).d(0x08, eax).d(0x0C, 0xBFEBFBFF).b(0x10, 3);
    r.w(0x12, 100).w(0x14, status != 0 ? 4000 : 0).w(0x16, status != 0 ? 2500 : 0).b(0x18, status);
    r.w(0x1A, 0xFFFF).w(0x1C, 0xFFFF).w(0x1E, 0xFFFF);
    r.b(0x23, cores).b(0x24, cores).b(0x25, 2 * cores).w(0x26, 0xFC).w(0x28, family);
    return r;
}

// A DIMM: size in MB (0: empty slot; above 32767 through the extended size).
Rec dimm(int handle, const char* locator, unsigned sizeMB)
{
    Rec r(17, handle, 0x28,
          {locator, "NODE 0", "Samsung", "3A1F0000", std::string(locator) + "_AssetTag", "M393A4K40DB3-CWE"});
    r.w(0x04, 0x1000).w(0x06, 0xFFFE).w(0x08, 72).w(0x0A, 64).b(0x0E, 9).b(0x10, 1).b(0x11, 2);
    if (sizeMB == 0) {
        r.strings = {locator, "NODE 0"};
        r.w(0x0C, 0).b(0x12, 2).w(0x13, 0x0004);
        return r;
    }
    r.w(0x0C, sizeMB > 0x7FFE ? 0x7FFF : sizeMB).d(0x1C, sizeMB > 0x7FFE ? sizeMB : 0);
    r.b(0x12, 0x1A).w(0x13, 0x2080).w(0x15, 3200).b(0x17, 3).b(0x18, 4).b(0x19, 5).b(0x1A, 6).b(0x1B, 2);
    return r.w(0x20, 2933);
}

std::vector<Rec> twoSocketHost(unsigned family, unsigned eax)
{
    Rec system(1, 0x0001, 0x1B, {"Bresk Systems", "R9000", "1.0", "SRV123"});
    system.b(0x04, 1).b(0x05, 2).b(0x06, 3).b(0x07, 4);
    for (int i = 0; i < 16; i++) {
        system.b(0x08 + i, 0x10 + i);
    }
    Rec slot(9, 0x0020, 0x11, {"PCIe Slot 1"});
    slot.b(0x04, 1).b(0x05, 0xB6).b(0x06, 0x0D).b(0x07, 4).b(0x08, 4).b(0x09, 1).b(0x0B, 0x0C).b(0x0C, 1);
    Rec lan(41, 0x0030, 0x0B, {"Onboard LAN 1"});
    lan.b(0x04, 1).b(0x05, 0x85).b(0x06, 1).b(0x09, 1);
    return {system,
            processor(0x0004, "CPU1", family, eax, 0x41, 20),
            processor(0x0005, "CPU2", family, 0, 0x00, 0),
            dimm(0x0011, "DIMM_A1", 32768),
            dimm(0x0012, "DIMM_A2", 0),
            dimm(0x0013, "DIMM_B1", 16384),
            slot,
            lan};
}

// A dump as dmidecode --dump-bin writes it: entry point, table at 0x20.
std::string dump(const std::vector<Rec>& records, bool smbios3, size_t cutTableTo = std::string::npos)
{
    std::string table;
    for (const Rec& r : records) {
        table += r.bytes();
    }
    table += Rec(127, 0xFFFF, 4).bytes();
    // Sets byte `at` so that all bytes of `s` add up to zero.
    auto checksum = [](std::string& s, size_t at) {
        unsigned sum = 0;
        for (char c : s) {
            sum += static_cast<unsigned char>(c);
        }
        s[at] = static_cast<char>(-sum & 0xff);  // the byte is 0 until now
    };
    std::string ep;
    if (smbios3) {
        ep = "_SM3_" + le(0, 1) + le(0x18, 1) + le(3, 1) + le(2, 1) + le(0, 1) + le(1, 1) + le(0, 1) +
             le(table.size(), 4) + le(0x20, 8);
        checksum(ep, 5);
    } else {
        std::string dmi =
            "_DMI_" + le(0, 1) + le(table.size(), 2) + le(0x20, 4) + le(records.size() + 1, 2) + le(0x28, 1);
        checksum(dmi, 5);
        ep = "_SM_" + le(0, 1) + le(0x1F, 1) + le(2, 1) + le(8, 1) + le(0, 2) + le(0, 1) + std::string(5, '\0') + dmi;
        checksum(ep, 4);
    }
    ep.resize(0x20, '\0');
    return ep + table.substr(0, cutTableTo);
}

std::string dmidecode()
{
    for (const char* dir : {"/usr/sbin", "/sbin", "/usr/bin", "/bin"}) {
        std::string path = std::string(dir) + "/dmidecode";
        if (access(path.c_str(), X_OK) == 0) {
            return path;
        }
    }
    return "";
}

std::string run(const std::string& command)
{
    std::string out;
    FILE* p = popen(command.c_str(), "r");
    char buf[4096];
    for (size_t n; p != nullptr && (n = fread(buf, 1, sizeof buf, p)) > 0;) {
        out.append(buf, n);
    }
    if (p != nullptr) {
        pclose(p);
    }
    return out;
}

std::string describe(const HostInventory& host)
{
    std::string json;
    EXPECT_TRUE(HostDescription::write(host, "", json));
    return json;
}

}  // namespace

TEST(simhost, RawReaderAgreesWithDmidecode)
{
    const std::string decoder = dmidecode();
    ASSERT_FALSE(decoder.empty()) << "dmidecode is not installed (scripts/install-deps.sh installs it)";
    std::vector<Rec> badLength = twoSocketHost(0xB3, 0x50657);
    badLength.insert(badLength.begin() + 1, Rec(4, 0x0003, 0x10, {"CPU0"}));  // too short for a processor
    std::vector<Rec> broken = twoSocketHost(0xB3, 0x50657);
    broken.insert(broken.begin() + 4, Rec(17, 0x0010, 2));  // a length below the header: the table ends
    const struct {
        const char* what;
        std::string dump;
        size_t processors;
        size_t dimms;
        bool warns;
        std::vector<std::string> shown;  // texts the description must hold
    } cases[] = {
        // clang-format off
        {"3.x entry point", dump(twoSocketHost(0xB3, 0x50657), true), 2, 3, false,
         {"\"family\":\t\"Xeon\"", "\"signature\":\t\"Type 0, Family 6, Model 85, Stepping 7\"",
          "\"status\":\t\"Unpopulated\"", "\"capacity\":\t\"32768 MB\"", "\"capacity\":\t\"NA\"",
          "\"typeDetail\":\t\"Synchronous Registered (Buffered)\"", "\"total\":\t\"49152 MB\"",
          "\"uuid\":\t\"13121110-1514-1716-1819-1A1B1C1D1E1F\"", "\"slot\":\t\"SlotID:1\"",
          "\"slot\":\t\"SlotID:Onboard LAN 1\""}},
        {"2.x entry point, AMD", dump(twoSocketHost(0x6B, 0x00A00F11), false), 2, 3, false,
         {"\"family\":\t\"Zen\"", "\"signature\":\t\"Family 25, Model 1, Stepping 1\""}},
        {"truncated table", dump(twoSocketHost(0xB3, 0x50657), true, 300), 2, 0, true, {"\"socket\":\t\"CPU2\""}},
        {"record too short", dump(badLength, true), 2, 3, true, {"\"socket\":\t\"CPU1\""}},
        {"record length below its header", dump(broken, true), 2, 1, true, {}},
        // clang-format on
    };
    TestRoot root;
    for (const auto& c : cases) {
        std::string file = root.writeFile("/host.bin", c.dump);
        std::string text = run(decoder + " --from-dump " + file + " 2>/dev/null");
        ASSERT_NE(std::string::npos, text.find("Handle 0x0001")) << c.what << ": dmidecode read nothing\n" << text;
        HostInventory fromDump;
        HostInventory fromText;
        EXPECT_TRUE(SmbiosTableReader::read(c.dump, fromDump)) << c.what;
        EXPECT_TRUE(DmidecodeTextReader::read(text, fromText)) << c.what;
        std::string json = describe(fromDump);
        EXPECT_EQ(describe(fromText), json) << c.what << "\n" << text;
        EXPECT_EQ(c.processors, fromDump.processors.size()) << c.what;
        EXPECT_EQ(c.dimms, fromDump.memory.size()) << c.what;
        EXPECT_EQ(c.warns, !fromDump.warnings.empty()) << c.what;
        for (const std::string& shown : c.shown) {
            EXPECT_NE(std::string::npos, json.find(shown)) << c.what << ": " << shown << "\n" << json;
        }
        // Pasted text: blanks for tabs, CR line ends.
        std::string pasted;
        for (char ch : text) {
            pasted += ch == '\t' ? std::string("    ") : ch == '\n' ? std::string("\r\n") : std::string(1, ch);
        }
        HostInventory fromPaste;
        DmidecodeTextReader::read(pasted, fromPaste);
        EXPECT_EQ(json, describe(fromPaste)) << c.what;
    }
}

TEST(simhost, RefusesWhatIsNoTable)
{
    const std::string valid = dump(twoSocketHost(0xB3, 0x50657), true);
    std::string farTable = valid;
    farTable.replace(0x10, 8, le(1u << 30, 8));
    for (const std::string& bytes :
         {std::string(), std::string("_SM3_"), valid.substr(0, 0x20), farTable, std::string("Handle 0x0001 is text")}) {
        HostInventory host;
        EXPECT_FALSE(SmbiosTableReader::read(bytes, host));
        EXPECT_FALSE(host.warnings.empty());
    }
    HostInventory host;
    EXPECT_FALSE(DmidecodeTextReader::read("# dmidecode 3.4\nNo SMBIOS nor DMI entry point found, sorry.\n", host));
}
