// Sensor data repository stand-in: FRU device locator records built from
// "/var/sdr/sdr.json":
//   {"records": [{"id": 1, "type": 17, "fruDeviceId": 3, "entityId": 11,
//                 "name": "TPM_MODULE", "nameLength": 10}]}
// "type" defaults to 17; "nameLength" (default: the name's length, at most
// 31) is stored as given in the length byte, so a fixture can claim a name
// longer than its record.
#include "sdr.h"

#include <cjson/cJSON.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "PlatformRoot.h"

namespace {

int fault(const char* call)
{
    return PlatformRoot::faultFile("sdr", call);
}

cJSON* loadRecords()
{
    std::string text;
    return PlatformRoot::readFile("/var/sdr/sdr.json", text) ? cJSON_Parse(text.c_str()) : nullptr;
}

int intItem(const cJSON* obj, const char* key, int fallback)
{
    const cJSON* item = cJSON_GetObjectItem(obj, key);
    return cJSON_IsNumber(item) ? item->valueint : fallback;
}

void buildRecord(const cJSON* rec, sdr_record_t* out)
{
    memset(out, 0, sizeof *out);
    out->record_id = static_cast<unsigned short>(intItem(rec, "id", 0));
    out->data[0] = static_cast<unsigned char>(out->record_id & 0xff);
    out->data[1] = static_cast<unsigned char>(out->record_id >> 8);
    out->data[2] = 0x51;  // repository version
    out->data[SDR_FRU_RECORD_TYPE] = static_cast<unsigned char>(intItem(rec, "type", SDR_TYPE_FRU_LOCATOR));
    out->data[SDR_FRU_DEVICE_ID] = static_cast<unsigned char>(intItem(rec, "fruDeviceId", 0));
    out->data[SDR_FRU_ENTITY_ID] = static_cast<unsigned char>(intItem(rec, "entityId", 0));
    const cJSON* name = cJSON_GetObjectItem(rec, "name");
    const char* text = cJSON_IsString(name) ? name->valuestring : "";
    size_t len = strlen(text);
    if (len > SDR_RECORD_MAX - SDR_FRU_ID_STRING) {
        len = SDR_RECORD_MAX - SDR_FRU_ID_STRING;
    }
    memcpy(out->data + SDR_FRU_ID_STRING, text, len);
    int claimed = intItem(rec, "nameLength", static_cast<int>(len > 31 ? 31 : len));
    out->data[SDR_FRU_ID_LENGTH] = static_cast<unsigned char>(0xC0 | (claimed & 0x1f));
    out->length = SDR_FRU_ID_STRING + static_cast<int>(len);
    out->data[4] = static_cast<unsigned char>(out->length - 5);
}

}  // namespace

extern "C" int sdr_init_readonly(int readonly)
{
    (void)readonly;
    if (fault("sdr_init_readonly") != -1) {
        return -1;
    }
    cJSON* doc = loadRecords();
    if (doc == nullptr) {
        return -1;
    }
    cJSON_Delete(doc);
    return 0;
}

extern "C" int get_sdr_record_by_record_type(unsigned char type, sdr_record_list_t* list)
{
    if (list == nullptr || fault("get_sdr_record_by_record_type") != -1) {
        return -1;
    }
    memset(list, 0, sizeof *list);
    cJSON* doc = loadRecords();
    if (doc == nullptr) {
        return -1;
    }
    const cJSON* rec;
    cJSON_ArrayForEach(rec, cJSON_GetObjectItem(doc, "records"))
    {
        if (intItem(rec, "type", SDR_TYPE_FRU_LOCATOR) == type && list->count < SDR_LIST_MAX) {
            list->record_id[list->count++] = static_cast<unsigned short>(intItem(rec, "id", 0));
        }
    }
    cJSON_Delete(doc);
    return list->count;
}

extern "C" int get_sdr_record(unsigned short id, sdr_record_t* record)
{
    int f = fault("get_sdr_record");
    if (record == nullptr || f == -2) {
        return -1;
    }
    cJSON* doc = loadRecords();
    if (doc == nullptr) {
        return -1;
    }
    int result = -1;
    const cJSON* rec;
    cJSON_ArrayForEach(rec, cJSON_GetObjectItem(doc, "records"))
    {
        if (intItem(rec, "id", -1) == id) {
            buildRecord(rec, record);
            if (f >= 0 && f < record->length) {
                memset(record->data + f, 0, static_cast<size_t>(SDR_RECORD_MAX - f));
                record->length = f;
            }
            result = 0;
            break;
        }
    }
    cJSON_Delete(doc);
    return result;
}
