/* The controller's FRU data library: the board and product areas of the
 * field-replaceable units (power supplies, the TPM module, ...). The stand-in
 * reads them from "/var/fru/fru.json" under the platform root; a fault file
 * "/var/fru/faults/<call>" (empty or "fail") makes that call fail.
 * Thread-safe: every call reads the fixture afresh; no state. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define FRU_FIELD 64

typedef struct {
    int revision; /* format revision of the area, its first word */
    char manufacturer[FRU_FIELD];
    char product[FRU_FIELD];
    char serial[FRU_FIELD];
    char part_number[FRU_FIELD];
} fru_board_area_t;

typedef struct {
    char manufacturer[FRU_FIELD];
    char name[FRU_FIELD];
    char part_number[FRU_FIELD]; /* the product id shown for power supplies */
    char version[FRU_FIELD];
    char serial[FRU_FIELD];
} fru_product_area_t;

/* FRU entity types of get_fru_product_area_from_type_instance. */
#define FRU_TYPE_PSU 10

/* Product area of the `instance`-th (from 1) unit of `type`; 0 on success. */
int get_fru_product_area_from_type_instance(int type, int instance, fru_product_area_t* area);
/* Board and product area of FRU device `id`; 0 on success. */
int get_fru_board_area_from_id(int id, fru_board_area_t* area);
int get_fru_product_area_from_id(int id, fru_product_area_t* area);

#ifdef __cplusplus
}
#endif
