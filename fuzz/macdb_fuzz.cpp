// Fuzzes the adapter MAC database reader: arbitrary bytes as "MacDB.bin",
// read and answered in each reply form. The reply must stay well-formed,
// and the process-wide table consistent: never more adapters than the
// header's count, every adapter with exactly its interfaces' MAC entries.
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
        mkdir(PlatformRoot::path("/var").c_str(), 0755);
        mkdir(PlatformRoot::path("/var/pellox").c_str(), 0755);
        mkdir(PlatformRoot::path("/var/pellox/BIOS").c_str(), 0755);
        mkdir(PlatformRoot::path("/tmp").c_str(), 0755);
    }
    FILE* f = fopen(PlatformRoot::path(AdapterMacDatabase::kPrimaryPath).c_str(), "wb");
    if (f == nullptr) {
        abort();
    }
    fwrite(data, 1, size, f);
    fclose(f);
    AdapterMacDatabase::reset();  // every input is a new file
    AdapterMacDatabase db(*inventoryLog);
    int headerCount = size > 1 ? data[1] : 0;
    for (const char* argument : kArguments) {
        db.CheckforAdapterUpdate();
        db.extractSlotInfo(argument);
        db.getAdapterMacInfo();
        if (static_cast<int>(AdapterMacDatabase::adapters().size()) > headerCount ||
            AdapterMacDatabase::adapterCount() != static_cast<int>(AdapterMacDatabase::adapters().size())) {
            abort();
        }
        for (const auto& adapter : AdapterMacDatabase::adapters()) {
            if (adapter.macs.size() != (adapter.macs.empty() ? 0u : adapter.interfaces) || adapter.name.size() > 63) {
                abort();
            }
        }
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
