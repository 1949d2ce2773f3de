// The adapter MAC database: validation (one row per corruption), the
// reconciliation of slot map and MAC list, the reply forms, the slot list
// file, the slot argument and the update check.
#include "AdapterMacDatabase.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include "AgentHarness.h"
#include "DataAgent.h"
#include "ReplyText.h"

namespace {

// A MAC database built field by field, so each test states only what it changes.
struct Db {
    struct Slot {
        unsigned id;
        unsigned interfaces;
        std::string name;  // written into 64 bytes, unterminated when 64 long
    };
    int slots = 7;
    std::vector<Slot> map;
    std::vector<std::pair<unsigned, std::string>> macs;  // slot id, MAC text
    int count = -1;                                      // header adapter count; -1: map.size()
    int total = -1;                                      // header total length; -1: the true one

    std::string bytes() const
    {
        std::string body;
        for (const Slot& s : map) {
            body += le16(s.id) + le16(s.interfaces) + std::string(4, '\0');
            body += s.name.substr(0, 64) + std::string(64 - std::min<size_t>(64, s.name.size()), '\0');
        }
        body += std::string(72 * (slots - static_cast<int>(map.size())), '\0');
        unsigned id = 1;
        for (const auto& m : macs) {
            body +=
                le16(id++) + le16(m.first) + std::string(4, '\0') + m.second + std::string(32 - m.second.size(), '\0');
        }
        int length = total >= 0 ? total : static_cast<int>(8 + body.size());
        return std::string(1, '\xDB') + static_cast<char>(count >= 0 ? count : map.size()) + le16(macs.size()) +
               le16(static_cast<unsigned>(length)) + le16(0) + body;
    }
};

// A log whose lines a test can read back.
struct CapturedLog {
    FILE* file = tmpfile();
    ALog base{"test", file};
    AComponentLog log{"InventoryAgent"};
    CapturedLog()
    {
        base.setLevel(ALog::kTrace);
        log.setBaseLog(base);
    }
    ~CapturedLog() { fclose(file); }
    std::string text()
    {
        base.flush();
        std::string out;
        rewind(file);
        char buf[4096];
        for (size_t n; (n = fread(buf, 1, sizeof buf, file)) > 0;) {
            out.append(buf, n);
        }
        return out;
    }
};

struct Fixture {
    AgentHarness harness;
    CapturedLog captured;
    AdapterMacDatabase db{captured.log};
    Fixture()
    {
        AdapterMacDatabase::reset();
        DataAgent::resetPlatformCache();
    }
    ~Fixture()
    {
        AdapterMacDatabase::reset();
        DataAgent::resetPlatformCache();
    }
    void install(const std::string& bytes) { harness.root().writeFile(AdapterMacDatabase::kPrimaryPath, bytes); }
    // One request as the inventory agent runs it: check, argument, read, reply.
    std::string request(const std::string& extra)
    {
        harness.reply();
        db.CheckforAdapterUpdate();
        db.extractSlotInfo(extra);
        db.getAdapterMacInfo();
        db.postAdapterMacAddressList(harness.socket());
        return harness.reply();
    }
};

Db twoAdapters()
{
    Db db;
    db.map = {{1, 2, "Card One"}, {3, 1, "Card Three"}};
    db.macs = {{1, "00:00:00:00:01:01"}, {1, "00:00:00:00:01:02"}, {3, "00:00:00:00:03:01"}};
    return db;
}

}  // namespace

TEST(AdapterMacDatabase, ValidationRejectsEveryCorruption)
{
    Db tenMacs;  // 7 slots and 10 MAC entries: 8 + 504 + 400 = 912 bytes
    tenMacs.map = {{1, 10, "Ten"}};
    for (int i = 0; i < 10; i++) {
        tenMacs.macs.push_back({1, "MAC"});
    }
    std::string valid = tenMacs.bytes();
    ASSERT_EQ(valid.size(), 912u);
    Db wrongTotal = tenMacs;
    wrongTotal.total = 911;
    const struct {
        const char* what;
        std::string bytes;  // "<none>": no file
        const char* message;
    } cases[] = {
        {"no file", "<none>", "Unable to open Mac DB: /var/pellox/BIOS/MacDB.bin"},
        {"empty file", "", "\n Invalid Mac header"},
        {"short header", valid.substr(0, 7), "\n Invalid Mac header"},
        {"signature 0xDA", "\xDA" + valid.substr(1), "\n Invalid signature in MacDB"},
        {"cut in the slot map", valid.substr(0, 300), "\n Invalid Slot Description in MacDB"},
        {"cut in the MAC list", valid.substr(0, 900), "\n Invalid MAC list in MacDB"},
        {"MAC count overflowing the file", valid.substr(0, 2) + le16(0xFFFF) + valid.substr(4),
         "\n Invalid MAC list in MacDB"},
        {"total length 911", wrongTotal.bytes(), "\n MacDB data corrupted length:911, ftell:912"},
        {"trailing bytes counted", valid.substr(0, 4) + le16(1000) + valid.substr(6) + std::string(88, 'x'),
         "\n MacDB data corrupted length:1000, ftell:912"},
    };
    for (const auto& c : cases) {
        Fixture f;
        if (c.bytes != "<none>") {
            f.install(c.bytes);
        } else {
            unlink(f.harness.root().path(AdapterMacDatabase::kPrimaryPath).c_str());
        }
        EXPECT_EQ(f.db.ValidateMacDB(AdapterMacDatabase::kPrimaryPath), -1) << c.what;
        EXPECT_NE(f.captured.text().find(c.message), std::string::npos) << c.what << "\n" << f.captured.text();
        // Read as a whole: no adapters, a well-formed empty list.
        if (c.bytes != "<none>") {
            EXPECT_EQ(f.request(""), "<AdapterDataList></AdapterDataList>") << c.what;
        }
    }
    Fixture f;
    f.install(valid);
    EXPECT_EQ(f.db.ValidateMacDB(AdapterMacDatabase::kPrimaryPath), 0);
}

TEST(AdapterMacDatabase, SimulatedServerReplyForms)
{
    const struct {
        const char* extra;
        const char* file;
    } cases[] = {
        {"", "adapters-all.xml"},         {"[0]", "adapters-all.xml"},        {"[3 card]", "adapters-card3.xml"},
        {"[L mac]", "adapters-macL.xml"}, {"[0 card]", "adapters-cards.xml"},
    };
    Fixture f;
    for (const auto& c : cases) {
        EXPECT_EQ(f.request(c.extra), golden(std::string("devices/") + c.file)) << c.extra;
    }
    EXPECT_EQ(f.harness.root().readFile(AdapterMacDatabase::kSlotListPath), "1 3 L MZ 6 \n");
    // The argument lasts one reply.
    EXPECT_EQ(f.db.slotArgument(), 0);
    EXPECT_EQ(f.db.mode(), "");
}

TEST(AdapterMacDatabase, ReconcilesSlotMapAndMacList)
{
    const std::string placeholder =
        "<MacDataList><MacData><InterfaceID>0</InterfaceID><MacAddress>Card not supported or option ROM "
        "disabled</MacAddress><MediaPresent>N/A</MediaPresent></MacData></MacDataList>";
    auto card = [](const std::string& slot, const std::string& name, int interfaces) {
        return "<AdapterData><Slot>" + slot + "</Slot><ProductName>" + name + "</ProductName><NoOfInterfaces>" +
               std::to_string(interfaces) + "</NoOfInterfaces></AdapterData>";
    };
    const std::string both = card("1", "Card One", 2) + card("3", "Card Three", 1);
    auto build = [](auto change) {
        Db db = twoAdapters();
        change(db);
        return db.bytes();
    };
    const struct {
        const char* what;
        std::string bytes;
        std::string reply;  // of "[0 card]"
        const char* log;
    } cases[] = {
        {"consistent", build([](Db&) {}), both, "Using cached"},
        {"MAC of an unknown slot", build([](Db& d) {
             d.macs.push_back({9, "00:00:00:00:09:01"});
         }),
         "", "Invalid Slot number was expecting 9 "},
        {"third adapter with interfaces but no MACs", build([](Db& d) {
             d.map.push_back({5, 2, "Card Five"});
         }),
         both + card("5", "Card Five", 0), "Found missing network adapter entry (slotID 0x5) with 2 interfaces"},
        {"nameless adapter", build([](Db& d) {
             d.map.push_back({6, 1, ""});
         }),
         both + card("6", "Unknown Adapter", 0), "product name is NULL or empty"},
        {"count higher than anything found", build([](Db& d) { d.count = 3; }), "",
         "Unable to find missing network adapter entry"},
        {"more adapters than the count", build([](Db& d) { d.count = 1; }), "", "More network adapters"},
        {"MACs of one adapter interleaved", build([](Db& d) { std::swap(d.macs[1], d.macs[2]); }), "",
         "Mismatch in mac data for slot 1"},
        {"interface count beyond the MAC list", build([](Db& d) { d.map[1].interfaces = 4; }), "",
         "Mismatch in mac data for slot 3"},
    };
    for (const auto& c : cases) {
        Fixture f;
        f.install(c.bytes);
        f.request("");
        EXPECT_EQ(flat(f.request("[0 card]")), "<AdapterDataList>" + c.reply + "</AdapterDataList>") << c.what;
        EXPECT_NE(f.captured.text().find(c.log), std::string::npos) << c.what << "\n" << f.captured.text();
    }
    Fixture f;
    f.install(build([](Db& d) { d.map.push_back({5, 0, "No MACs"}); }));
    EXPECT_NE(flat(f.request(""))
                  .find("<Slot>5</Slot><ProductName>No MACs</ProductName><NoOfInterfaces>0"
                        "</NoOfInterfaces>" +
                        placeholder),
              std::string::npos);
}

TEST(AdapterMacDatabase, BoundsWhatDoesNotFit)
{
    Fixture f;
    Db db = twoAdapters();
    db.map[0].name = std::string(64, 'N');  // no terminator: cut to 63
    db.map[1].id = 77 * 256 + 90;           // "MZ"
    db.macs[2].first = 77 * 256 + 90;
    f.install(db.bytes());
    std::string reply = flat(f.request("[0 card]"));
    EXPECT_NE(reply.find("<ProductName>" + std::string(63, 'N') + "</ProductName>"), std::string::npos) << reply;
    EXPECT_NE(reply.find("<Slot>MZ</Slot>"), std::string::npos) << reply;
    EXPECT_EQ(f.harness.root().readFile(AdapterMacDatabase::kSlotListPath), "1 MZ \n");
    EXPECT_EQ(flat(f.request("[MZ mac]")),
              "<MacDataList><MacData><InterfaceID>3</InterfaceID><MacAddress>00:00:00:00:03:01</MacAddress>"
              "<MediaPresent>N/A</MediaPresent></MacData></MacDataList>");
    EXPECT_EQ(flat(f.request("[MZQ card]")), "<AdapterDataList></AdapterDataList>");
    EXPECT_EQ(f.request("[MZQ mac]"), "");
}

TEST(AdapterMacDatabase, SlotArgumentForms)
{
    const struct {
        const char* extra;
        unsigned short slot;
        bool rejected;
        const char* mode;
    } cases[] = {
        {"[L mac]", 76, false, "mac"},   {"[MZ card]", 77 * 256 + 90, false, "card"},
        {"[IOESlot1]", 5, false, ""},    {"[IOESlot2 card]", 7, false, "card"},
        {"[0x0c]", 12, false, ""},       {"[ 3   card ]", 3, false, "card"},
        {"[LMN card]", 0, true, "card"}, {"[70000 mac]", 0, true, "mac"},
        {"[3 cards]", 3, false, "card"}, {"no brackets", 0, false, ""},
    };
    for (const auto& c : cases) {
        AComponentLog log;
        AdapterMacDatabase db(log);
        db.extractSlotInfo(c.extra);
        EXPECT_EQ(db.slotArgument(), c.slot) << c.extra;
        EXPECT_EQ(db.slotRejected(), c.rejected) << c.extra;
        EXPECT_EQ(db.mode(), c.mode) << c.extra;
    }
}

TEST(AdapterMacDatabase, RewritingTheFileMakesTheNextRequestRereadIt)
{
    Fixture f;
    Db db = twoAdapters();
    f.install(db.bytes());
    EXPECT_NE(f.request("[0 card]").find("Card Three"), std::string::npos);
    EXPECT_FALSE(AdapterMacDatabase::updatePending());
    db.map[1].name = "Card Renamed";
    db.map[1].interfaces = 2;
    db.macs.push_back({3, "00:00:00:00:03:02"});
    f.install(db.bytes());  // rewritten at once, possibly within the same clock tick
    std::string reply = f.request("[0 card]");
    EXPECT_NE(reply.find("Card Renamed"), std::string::npos) << reply;
    // Without a change the table is reused.
    f.request("");
    EXPECT_NE(f.captured.text().find("Using cached adapter Mac Address Data"), std::string::npos);
    // The second location serves when the first is missing; a missing file keeps the table.
    unlink(f.harness.root().path(AdapterMacDatabase::kPrimaryPath).c_str());
    EXPECT_NE(f.request("[0 card]").find("Card Renamed"), std::string::npos);
    db.map[1].name = "From Flash";
    f.harness.root().writeFile(AdapterMacDatabase::kSecondaryPath, db.bytes());
    EXPECT_NE(f.request("[0 card]").find("From Flash"), std::string::npos);
    EXPECT_NE(f.captured.text().find("new version of MacDb.bin found 2"), std::string::npos);
}

TEST(AdapterMacDatabase, ConnectionsReadingWhileTheFileChanges)
{
    // Readers on several threads hold a mutex as the inventory pass does;
    // a writer rewrites the file in place and runs the unlocked update
    // check. Every table seen is one of the two files, or empty when a read
    // met a half-written file; the last file always wins.
    Fixture f;
    Db small = twoAdapters();
    Db large = twoAdapters();
    large.map.push_back({4, 1, "Card Four"});
    large.macs.push_back({4, "00:00:00:00:04:01"});
    const std::string files[2] = {small.bytes(), large.bytes()};
    f.install(files[0]);
    std::mutex inventoryMutex;
    std::atomic<bool> done{false};
    std::atomic<int> bad{0};
    auto reader = [&]() {
        AComponentLog log;
        AdapterMacDatabase db(log);
        while (!done) {
            db.CheckforAdapterUpdate();
            std::lock_guard<std::mutex> lock(inventoryMutex);
            db.getAdapterMacInfo();
            size_t n = AdapterMacDatabase::adapters().size();
            if (n != 0 && n != 2 && n != 3) {
                bad++;
            }
        }
    };
    std::thread readers[2] = {std::thread(reader), std::thread(reader)};
    AComponentLog log;
    AdapterMacDatabase writer(log);
    for (int i = 1; i <= 60; i++) {
        f.install(files[i % 2]);
        writer.CheckforAdapterUpdate();
    }
    done = true;
    for (auto& t : readers) {
        t.join();
    }
    EXPECT_EQ(bad, 0);
    f.db.getAdapterMacInfo();
    EXPECT_EQ(AdapterMacDatabase::adapters().size(), 2u);  // the 60th write: the small file
}
