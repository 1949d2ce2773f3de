// Local disks and TPM of the SMBIOS inventory library stand-in, from
// "/var/smbios/devices.json":
//   {"disks": [{"slot": true, "present": true, "degraded": false}, ...],
//    "diskCount": 2,
//    "tpm": {"present": true, "enabled": true, "activated": true, "owned": false,
//            "txtPresent": true, "vtIssue": false, "vtdIssue": false,
//            "hwIssue": false, "bootIssue": false}}
// "diskCount" (default: the number of disks) is stored as given, so a fixture
// can claim more disks than it lists. At most SMBIOS_DISKS_MAX entries fit.
#include "smbios_devices.h"

#include <cjson/cJSON.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "PlatformRoot.h"

namespace {

int fault(const char* call)
{
    return PlatformRoot::faultFile("smbios", call);
}

bool flag(const cJSON* obj, const char* key)
{
    const cJSON* item = cJSON_GetObjectItem(obj, key);
    return cJSON_IsTrue(item) || (cJSON_IsNumber(item) && item->valueint != 0);
}

// The common frame of both calls: fault, capacity and fixture checks, then
// `build` fills `size` bytes from the fixture's document.
template <typename Build>
int answer(const char* call, int* length, int capacity, void* output, int size, Build build)
{
    if (length == nullptr || output == nullptr || capacity < size) {
        return SMBIOS_DEV_CAPACITY;
    }
    int f = fault(call);
    if (f == -2) {
        *length = 0;
        return SMBIOS_DEV_FAILED;
    }
    std::string text;
    cJSON* doc = PlatformRoot::readFile("/var/smbios/devices.json", text) ? cJSON_Parse(text.c_str()) : nullptr;
    if (doc == nullptr) {
        *length = 0;
        return SMBIOS_DEV_FAILED;
    }
    unsigned char record[SMBIOS_DISKS_SIZE > SMBIOS_TPM_SIZE ? SMBIOS_DISKS_SIZE : SMBIOS_TPM_SIZE] = {};
    bool ok = build(doc, record);
    cJSON_Delete(doc);
    if (!ok) {
        *length = 0;
        return SMBIOS_DEV_FAILED;
    }
    int n = (f >= 0 && f < size) ? f : size;
    memcpy(output, record, static_cast<size_t>(n));
    *length = n;
    return 0;
}

}  // namespace

extern "C" int DisksInfoGet(int* length, int capacity, const void* input, void* output)
{
    (void)input;
    return answer("DisksInfoGet", length, capacity, output, SMBIOS_DISKS_SIZE,
                  [](const cJSON* doc, unsigned char* rec) {
                      const cJSON* disks = cJSON_GetObjectItem(doc, "disks");
                      int listed = cJSON_GetArraySize(disks);
                      const cJSON* count = cJSON_GetObjectItem(doc, "diskCount");
                      int claimed = cJSON_IsNumber(count) ? count->valueint : listed;
                      rec[0] = static_cast<unsigned char>(claimed & 0xff);
                      rec[1] = static_cast<unsigned char>((claimed >> 8) & 0xff);
                      int i = 0;
                      const cJSON* disk;
                      cJSON_ArrayForEach(disk, disks)
                      {
                          if (i >= SMBIOS_DISKS_MAX) {
                              break;
                          }
                          unsigned char bits = 0;
                          bits |= flag(disk, "slot") ? SMBIOS_DISK_SLOT : 0;
                          bits |= flag(disk, "present") ? SMBIOS_DISK_PRESENT : 0;
                          bits |= flag(disk, "degraded") ? SMBIOS_DISK_DEGRADED : 0;
                          rec[4 + 4 * i] = bits;
                          i++;
                      }
                      return true;
                  });
}

extern "C" int GetTPMInfo(smbios_tpm_info_t* structure)
{
    int length = 0;
    void* output = structure != nullptr ? structure->bytes : nullptr;
    return answer("GetTPMInfo", &length, SMBIOS_TPM_SIZE, output, SMBIOS_TPM_SIZE,
                  [](const cJSON* doc, unsigned char* rec) {
                      const cJSON* tpm = cJSON_GetObjectItem(doc, "tpm");
                      if (!cJSON_IsObject(tpm)) {
                          return false;
                      }
                      static const struct {
                          int offset;
                          const char* key;
                      } kFields[] = {
                          {SMBIOS_TPM_PRESENT, "present"},          {SMBIOS_TPM_ENABLED, "enabled"},
                          {SMBIOS_TPM_ACTIVATED, "activated"},      {SMBIOS_TPM_OWNED, "owned"},
                          {SMBIOS_TPM_TXT_PRESENT, "txtPresent"},   {SMBIOS_TPM_TXT_VT_ISSUE, "vtIssue"},
                          {SMBIOS_TPM_TXT_VTD_ISSUE, "vtdIssue"},   {SMBIOS_TPM_TXT_HW_ISSUE, "hwIssue"},
                          {SMBIOS_TPM_TXT_BOOT_ISSUE, "bootIssue"},
                      };
                      for (const auto& f : kFields) {
                          rec[f.offset] = flag(tpm, f.key) ? 1 : 0;
                      }
                      return true;
                  });
}
