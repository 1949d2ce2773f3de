// Fuzzes the adapter MAC database reader: arbitrary bytes as "MacDB.bin",
// read and answered in each reply form. The reply must stay well-formed.
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "AdapterMacDatabase.h"
#include "PlatformRoot.h"
#include "fuzz_connection.h"
#include "fuzz_xml_balance.h"

namespace {
fuzzconn::Connection connection;
AComponentLog* inventoryLog = nullptr;
const char* const kArguments[] = {"", "[0]", "[1 card]", "[L mac]", "[MZ card]", "[3 mac]", "[LMN card]"};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (inventoryLog == nullptr) {
        fuzzconn::setUp("macdb_fuzz");
        connection = fuzzconn::connect(false);
        inventoryLog = new AComponentLog("InventoryAgent");
        for (const char* dir : {"/var", "/var/pellox", "/var/pellox/BIOS", "/tmp"}) {
            mkdir(PlatformRoot::path(dir).c_str(), 0755);
        }
    }
    FILE* f = fopen(PlatformRoot::path(AdapterMacDatabase::kPrimaryPath).c_str(), "wb");
    if (f == nullptr) {
        abort();
    }
    fwrite(data, 1, size, f);
    fclose(f);
    AdapterMacDatabase::reset();  // every input is a new file
    AdapterMacDatabase db(*inventoryLog);
    for (const char* argument : kArguments) {
        db.CheckforAdapterUpdate();
        db.extractSlotInfo(argument);
        db.getAdapterMacInfo();
        GUIDataSocket& socket = connection.handler->getSocket();
        socket.writeString("<r>");
        db.postAdapterMacAddressList(socket);
        socket.writeString("</r>");
        socket.flush();
        if (!fuzzxml::balanced(fuzzconn::drain(connection.client))) {
            abort();
        }
    }
    return 0;
}
