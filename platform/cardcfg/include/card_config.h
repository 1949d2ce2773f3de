/* Card configuration library: the controller's record of the virtual
 * interface cards in the PCIe slots (type, activity, action and temperature
 * state, serial number, description), with the calls that change it.
 * Thread-safe: every get_card_config returns a private snapshot that the
 * caller releases with free_config; the write calls change the card model.
 *
 * The stand-in reads the simulated card model, one folder per card under
 * "/var/cards/<slot>/" below the platform root, from its "card" file of
 * "key: value" lines (the same files the simulated cardutil and mptool
 * read). The fault files "/var/cardcfg/faults/<call>" make a call fail with
 * the number written inside (-1 when there is none); every write call is
 * appended to "/var/cardcfg/calls". */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define CARD_SERIAL_SIZE 32
#define CARD_DESCRIPTION_SIZE 65
#define CARD_CONFIG_MAX_CARDS 16

typedef struct card {
    int slot;            /* PCIe slot number */
    int type;            /* card type code */
    int active;          /* non-zero: the controller manages the card */
    int actions_enabled; /* non-zero: commands may be sent to the card */
    int overtemp;        /* non-zero: the card is too hot for commands */
    char serial[CARD_SERIAL_SIZE];
    char description[CARD_DESCRIPTION_SIZE];
} card;

typedef struct config {
    int count;
    card cards[CARD_CONFIG_MAX_CARDS];
} config;

/* Prepares the library; 0 on success. */
int card_config_lib_init(void);
/* A snapshot of every card, in slot order; 0 on success (then *cfg is set
 * and must be released with free_config), non-zero on failure. */
int get_card_config(config** cfg);
/* The card in `slot` within `cfg`, or null. */
card* get_card_by_pci_slot_id(config* cfg, unsigned char slot);
/* Stores the card's type code in *type; 0 on success. */
int get_card_type(card* c, int* type);
int is_card_active(card* c);
int are_card_actions_enabled(card* c);
int check_overtemp_condition(card* c);
/* Copies the serial number into `serial`, which holds CARD_SERIAL_SIZE
 * characters (terminated); 0 on success. */
int get_card_serialnum(card* c, char* serial);
/* Write calls, 0 on success. The card is named by its serial number within
 * `cfg` (whose copy is updated too); `flags` is 0. */
int set_card_as_active(config* cfg, char* serial, int flags);
int set_card_as_inactive(config* cfg, char* serial, int flags);
int bypass_reset_sequence(config* cfg, char* serial);
int set_card_description(card* c, const char* description);
void free_config(config* cfg);

#ifdef __cplusplus
}
#endif
