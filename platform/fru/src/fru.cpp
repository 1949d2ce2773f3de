// FRU data stand-in: areas from "/var/fru/fru.json":
//   {"devices": [{"id": 3, "type": 10, "instance": 1,
//                 "board": {"revision": 1, "manufacturer": "...", "product": "...",
//                           "serial": "...", "partNumber": "..."},
//                 "product": {"manufacturer": "...", "name": "...", "partNumber": "...",
//                             "version": "...", "serial": "..."}}]}
// A device without "board" or "product" fails that read. Texts longer than a
// field are cut to 63 characters.
#include "fru.h"

#include <cjson/cJSON.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "PlatformRoot.h"

namespace {

bool faulted(const char* call)
{
    return PlatformRoot::faultFile("fru", call) != -1;
}

int intItem(const cJSON* obj, const char* key, int fallback)
{
    const cJSON* item = cJSON_GetObjectItem(obj, key);
    return cJSON_IsNumber(item) ? item->valueint : fallback;
}

void copyText(char* field, const cJSON* obj, const char* key)
{
    const cJSON* item = cJSON_GetObjectItem(obj, key);
    memset(field, 0, FRU_FIELD);
    if (cJSON_IsString(item)) {
        strncpy(field, item->valuestring, FRU_FIELD - 1);
    }
}

// Finds the device that `match` accepts and hands its area `key` to `fill`;
// 0 when found.
template <typename Match, typename Fill>
int withArea(const char* key, Match match, Fill fill)
{
    std::string text;
    if (!PlatformRoot::readFile("/var/fru/fru.json", text)) {
        return -1;
    }
    cJSON* doc = cJSON_Parse(text.c_str());
    int result = -1;
    const cJSON* dev;
    cJSON_ArrayForEach(dev, cJSON_GetObjectItem(doc, "devices"))
    {
        const cJSON* area = cJSON_GetObjectItem(dev, key);
        if (match(dev) && cJSON_IsObject(area)) {
            fill(area);
            result = 0;
            break;
        }
    }
    cJSON_Delete(doc);
    return result;
}

void fillProduct(fru_product_area_t* out, const cJSON* area)
{
    copyText(out->manufacturer, area, "manufacturer");
    copyText(out->name, area, "name");
    copyText(out->part_number, area, "partNumber");
    copyText(out->version, area, "version");
    copyText(out->serial, area, "serial");
}

}  // namespace

extern "C" int get_fru_product_area_from_type_instance(int type, int instance, fru_product_area_t* area)
{
    if (area == nullptr || faulted("get_fru_product_area_from_type_instance")) {
        return -1;
    }
    return withArea(
        "product",
        [&](const cJSON* dev) { return intItem(dev, "type", -1) == type && intItem(dev, "instance", -1) == instance; },
        [&](const cJSON* a) { fillProduct(area, a); });
}

extern "C" int get_fru_board_area_from_id(int id, fru_board_area_t* area)
{
    if (area == nullptr || faulted("get_fru_board_area_from_id")) {
        return -1;
    }
    return withArea(
        "board", [&](const cJSON* dev) { return intItem(dev, "id", -1) == id; },
        [&](const cJSON* a) {
            area->revision = intItem(a, "revision", 0);
            copyText(area->manufacturer, a, "manufacturer");
            copyText(area->product, a, "product");
            copyText(area->serial, a, "serial");
            copyText(area->part_number, a, "partNumber");
        });
}

extern "C" int get_fru_product_area_from_id(int id, fru_product_area_t* area)
{
    if (area == nullptr || faulted("get_fru_product_area_from_id")) {
        return -1;
    }
    return withArea(
        "product", [&](const cJSON* dev) { return intItem(dev, "id", -1) == id; },
        [&](const cJSON* a) { fillProduct(area, a); });
}
