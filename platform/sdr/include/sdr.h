/* The controller's sensor data repository, read-only: the records a platform
 * describes its sensors and FRU devices with. The stand-in builds the records
 * from "/var/sdr/sdr.json" under the platform root; a fault file
 * "/var/sdr/faults/<call>" (empty or "fail") makes that call fail, "short <n>"
 * makes get_sdr_record return only n bytes of the record. Thread-safe: every
 * call reads the fixture afresh; no state. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define SDR_RECORD_MAX 64 /* bytes of the longest record */
#define SDR_LIST_MAX 64   /* record ids one list holds */
#define SDR_TYPE_FRU_LOCATOR 0x11

/* Byte offsets inside a FRU device locator record (type 0x11). */
#define SDR_FRU_RECORD_TYPE 3
#define SDR_FRU_DEVICE_ID 11
#define SDR_FRU_ENTITY_ID 12
#define SDR_FRU_ID_LENGTH 20 /* low 5 bits: length of the id string */
#define SDR_FRU_ID_STRING 21

typedef struct {
    unsigned short record_id;
    int length; /* bytes of data that hold the record */
    unsigned char data[SDR_RECORD_MAX];
} sdr_record_t;

typedef struct {
    int count;
    unsigned short record_id[SDR_LIST_MAX];
} sdr_record_list_t;

/* Opens the repository; 0 on success. */
int sdr_init_readonly(int readonly);
/* Lists the ids of every record of `type` (at most SDR_LIST_MAX): the count,
 * or -1 on failure. */
int get_sdr_record_by_record_type(unsigned char type, sdr_record_list_t* list);
/* Copies record `id`; 0 on success, -1 when it fails or there is no such record. */
int get_sdr_record(unsigned short id, sdr_record_t* record);

#ifdef __cplusplus
}
#endif
