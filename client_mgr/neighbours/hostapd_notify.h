// Notifications to hostapd.
#ifndef CLIENT_MGR_NEIGHBOURS_HOSTAPD_NOTIFY_H
#define CLIENT_MGR_NEIGHBOURS_HOSTAPD_NOTIFY_H

#include "wire/local_messages.h"

extern "C" {

// Sends hostapd one client's PMK message. Returns 0, or -1 when hostapd cannot be reached.
int client_mgr_notify_hostapd(const pmk_info_message *msg);
}

#endif
