#include "HostDescription.h"

#include <cjson/cJSON.h>

#include <cstdlib>
#include <vector>

namespace {

void replace(cJSON* root, const char* key, cJSON* item)
{
    if (cJSON_HasObjectItem(root, key)) {
        cJSON_ReplaceItemInObjectCaseSensitive(root, key, item);
    } else {
        cJSON_AddItemToObject(root, key, item);
    }
}

cJSON* processors(const HostInventory& host)
{
    cJSON* list = cJSON_CreateArray();
    for (const auto& p : host.processors) {
        cJSON* o = cJSON_CreateObject();
        cJSON_AddStringToObject(o, "socket", p.socket.c_str());
        cJSON_AddStringToObject(o, "manufacturer", p.manufacturer.c_str());
        cJSON_AddStringToObject(o, "family", p.family.c_str());
        cJSON_AddNumberToObject(o, "threads", p.threads);
        cJSON_AddStringToObject(o, "serial", p.serial.c_str());
        cJSON_AddStringToObject(o, "version", p.version.c_str());
        cJSON_AddNumberToObject(o, "speed", p.speed);
        cJSON_AddNumberToObject(o, "cores", p.cores);
        cJSON_AddNumberToObject(o, "coresEnabled", p.coresEnabled);
        cJSON_AddStringToObject(o, "status", p.status.c_str());
        cJSON_AddNumberToObject(o, "maxSpeed", p.maxSpeed);
        cJSON_AddStringToObject(o, "signature", p.signature.c_str());
        cJSON_AddItemToArray(list, o);
    }
    return list;
}

// DIMMs in the hosts' own way: an empty slot is listed with "NA" values and
// is not visible.
cJSON* dimms(const HostInventory& host)
{
    cJSON* list = cJSON_CreateArray();
    for (const auto& m : host.memory) {
        cJSON* o = cJSON_CreateObject();
        auto add = [o, &m](const char* key, const std::string& value) {
            cJSON_AddStringToObject(o, key, m.installed ? value.c_str() : "NA");
        };
        cJSON_AddStringToObject(o, "name", m.locator.c_str());
        add("capacity", m.sizeMB < 0 ? "Unknown" : std::to_string(m.sizeMB) + " MB");
        add("speed", m.speed == 0 ? "Unknown" : std::to_string(m.speed) + " MHz");
        add("type", m.type);
        add("typeDetail", m.typeDetail);
        cJSON_AddStringToObject(o, "bank", m.bank.c_str());
        add("manufacturer", m.manufacturer);
        add("serial", m.serial);
        add("assetTag", m.assetTag);
        add("partNumber", m.partNumber);
        cJSON_AddStringToObject(o, "visibility", m.installed ? "Yes" : "No");
        add("operability", "Operable");
        add("dataWidth", m.dataWidth == 0 ? "Unknown" : std::to_string(m.dataWidth) + " bits");
        cJSON_AddItemToArray(list, o);
    }
    return list;
}

cJSON* summary(const HostInventory& host)
{
    long long total = 0;
    unsigned speed = 0;
    for (const auto& m : host.memory) {
        if (m.installed && m.sizeMB > 0) {
            total += m.sizeMB;
        }
        if (m.installed && m.speed > speed) {
            speed = m.speed;
        }
    }
    std::string mb = std::to_string(total) + " MB";
    cJSON* o = cJSON_CreateObject();
    cJSON_AddStringToObject(o, "speed", std::to_string(speed).c_str());
    cJSON_AddStringToObject(o, "total", mb.c_str());
    cJSON_AddStringToObject(o, "effective", mb.c_str());
    cJSON_AddStringToObject(o, "redundant", "0 MB");
    cJSON_AddStringToObject(o, "failed", "0 MB");
    cJSON_AddStringToObject(o, "ignored", "0 MB");
    cJSON_AddNumberToObject(o, "ignoredDimms", 0);
    cJSON_AddNumberToObject(o, "failedDimms", 0);
    cJSON_AddStringToObject(o, "rasPossible", "Independent Channel Mode");
    cJSON_AddStringToObject(o, "configuration", "Independent Channel Mode");
    return o;
}

// Slots in use and on-board devices as PCI adapters. The tables carry no PCI
// ids: they stay 0. A slot is named by its number, an on-board device by its
// designation.
cJSON* pcie(const HostInventory& host)
{
    cJSON* list = cJSON_CreateArray();
    auto add = [list](const std::string& name, const std::string& slot) {
        cJSON* o = cJSON_CreateObject();
        for (const char* key : {"vendor", "device", "subVendor", "subDevice"}) {
            cJSON_AddStringToObject(o, key, "0x0000");
        }
        cJSON_AddStringToObject(o, "name", name.c_str());
        cJSON_AddStringToObject(o, "slot", ("SlotID:" + slot).c_str());
        cJSON_AddStringToObject(o, "firmware", "N/A");
        cJSON_AddNumberToObject(o, "optionRom", 0);
        cJSON_AddItemToArray(list, o);
    };
    for (const auto& s : host.slots) {
        add(s.designation, s.id.empty() ? s.designation : s.id);
    }
    for (const auto& d : host.onboard) {
        add(d.kind, d.designation);
    }
    return list;
}

// Temperature statistics for the imported DIMMs and processors: one record
// per installed device, described by its locator or socket, the temperatures
// taken in turn from the base description's records ("30 C" without any).
cJSON* stats(const cJSON* base, const std::vector<std::string>& names)
{
    std::vector<std::string> temperatures;
    const cJSON* record;
    cJSON_ArrayForEach(record, base)
    {
        const cJSON* t = cJSON_GetObjectItemCaseSensitive(record, "temperature");
        if (cJSON_IsString(t)) {
            temperatures.push_back(t->valuestring);
        }
    }
    cJSON* list = cJSON_CreateArray();
    for (size_t i = 0; i < names.size(); i++) {
        cJSON* o = cJSON_CreateObject();
        cJSON_AddNumberToObject(o, "id", static_cast<double>(i + 1));
        cJSON_AddStringToObject(o, "temperature",
                                temperatures.empty() ? "30 C" : temperatures[i % temperatures.size()].c_str());
        cJSON_AddStringToObject(o, "description", names[i].c_str());
        cJSON_AddItemToArray(list, o);
    }
    return list;
}

}  // namespace

bool HostDescription::write(const HostInventory& host, const std::string& base, std::string& json)
{
    cJSON* root = base.empty() ? cJSON_CreateObject() : cJSON_Parse(base.c_str());
    if (!cJSON_IsObject(root)) {
        cJSON_Delete(root);
        return false;
    }
    const cJSON* version = cJSON_GetObjectItemCaseSensitive(root, "version");
    int next = cJSON_IsNumber(version) ? (version->valueint + 1) & 0xff : 1;
    replace(root, "version", cJSON_CreateNumber(next == 0 ? 1 : next));
    cJSON* system = cJSON_CreateObject();
    cJSON_AddStringToObject(system, "manufacturer", host.system.manufacturer.c_str());
    cJSON_AddStringToObject(system, "product", host.system.product.c_str());
    cJSON_AddStringToObject(system, "uuid", host.system.uuid.c_str());
    replace(root, "system", system);
    replace(root, "processors", processors(host));
    replace(root, "dimms", dimms(host));
    replace(root, "memorySummary", summary(host));
    replace(root, "pcie", pcie(host));
    std::vector<std::string> dimmNames;
    for (const auto& m : host.memory) {
        if (m.installed) {
            dimmNames.push_back(m.locator);
        }
    }
    std::vector<std::string> sockets;
    for (const auto& p : host.processors) {
        if (p.status.compare(0, 9, "Populated") == 0) {
            sockets.push_back(p.socket);
        }
    }
    replace(root, "memoryStats", stats(cJSON_GetObjectItemCaseSensitive(root, "memoryStats"), dimmNames));
    replace(root, "processorStats", stats(cJSON_GetObjectItemCaseSensitive(root, "processorStats"), sockets));
    char* text = cJSON_Print(root);
    const bool printed = text != nullptr;
    json = printed ? std::string(text) + "\n" : "";
    free(text);
    cJSON_Delete(root);
    return printed;
}
