// Fuzzes the readers of the power-management and GPU daemons' files. The
// input is a list of files: per file one length byte (255: the file is
// missing) and that many bytes. Any contents give well-formed replies.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "DeviceInventory.h"
#include "PlatformRoot.h"
#include "fuzz_connection.h"
#include "fuzz_xml_balance.h"

namespace {
fuzzconn::Connection connection;
AComponentLog* inventoryLog = nullptr;
const char* const kFiles[] = {
    "/var/pmbus/num_psu",       "/var/pmbus/ps0/status",   "/var/pmbus/ps0/pin",       "/var/pmbus/ps0/poutmax",
    "/var/pmbus/ps0/rev",       "/var/pmbus/ps0/model",    "/var/pmbus/ps0/mfgRev",    "/var/pmbus/ps1/status",
    "/var/pmbus/ps1/pin",       "/var/gpu/num_gpu_sys",    "/var/gpu/gpu0/num_gpu",    "/var/gpu/gpu0/card_name",
    "/var/gpu/gpu0/pci_slotid", "/var/gpu/gpu0/temp0",     "/var/gpu/gpu0/temp1",      "/var/gpu/gpu0/temp3",
    "/var/gpu/gpu1/num_gpu",    "/var/gpu/gpu1/card_name", "/var/gpu/gpu1/pci_slotid", "/var/gpu/gpu1/temp0",
};
const char* const kDirs[] = {"/var",     "/var/pmbus",    "/var/pmbus/ps0", "/var/pmbus/ps1",
                             "/var/gpu", "/var/gpu/gpu0", "/var/gpu/gpu1"};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (inventoryLog == nullptr) {
        fuzzconn::setUp("daemonfiles_fuzz");
        connection = fuzzconn::connect(false);
        inventoryLog = new AComponentLog("InventoryAgent");
        for (const char* dir : kDirs) {
            mkdir(PlatformRoot::path(dir).c_str(), 0755);
        }
    }
    size_t at = 0;
    for (const char* file : kFiles) {
        std::string path = PlatformRoot::path(file);
        unsigned length = at < size ? data[at++] : 255;
        if (length == 255) {
            unlink(path.c_str());
            continue;
        }
        size_t n = length < size - at ? length : size - at;
        FILE* f = fopen(path.c_str(), "wb");
        if (f == nullptr) {
            abort();
        }
        fwrite(data + at, 1, n, f);
        fclose(f);
        at += n;
    }
    DeviceInventory devices(*inventoryLog);
    devices.fetchPowerSupplies();
    devices.fetchGpus();
    GUIDataSocket& socket = connection.handler->getSocket();
    socket.writeString("<r>");
    devices.writePowerSupplies(socket);
    for (unsigned short slot : {0, 5, 76}) {
        devices.writeGpus(socket, slot, "gpuInfo");
        devices.writeGpus(socket, slot, "card");
    }
    socket.writeString("</r>");
    socket.flush();
    if (!fuzzxml::balanced(fuzzconn::drain(connection.client))) {
        abort();
    }
    return 0;
}
