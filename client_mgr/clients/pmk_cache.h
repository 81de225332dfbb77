// PMKs shared between the access points of a site, through the controller.
#ifndef CLIENT_MGR_CLIENTS_PMK_CACHE_H
#define CLIENT_MGR_CLIENTS_PMK_CACHE_H

#include "wire/local_messages.h"

// Sends a new key of hostapd's to the controller and stores it. Returns 0, or -1 when it could not be sent or the BSSID
// is not ours.
int add_pmk(const pmk_info_message &msg);

// Answers hostapd's request for a client's key with the stored key, which is written to `msg`, or asks the controller
// for it. Returns 0, or -1 when neither was possible.
int fetch_pmk(pmk_info_message &msg);

#endif
