#include "client_mgr/neighbours/hostapd_notify.h"

#include <cstddef>

#include "client_mgr/base/log.h"
#include "client_mgr/base/wipe.h"
#include "kx/hapdcfg.h"
#include "wire/local_messages.h"

namespace {

constexpr uint32_t hostapd_command_client_info = 9;

}  // namespace

static_assert(sizeof(hostapd_command) == HOSTAPD_CONFIG_CMD_SIZE);

int client_mgr_notify_hostapd(const pmk_info_message *msg) {
    CM_LOG(LOG_EVENT, "called %s", __func__);
    alignas(max_align_t) uint8_t connection[HOSTAPD_CONFIG_CTX_SIZE] = {};
    if (hostapd_config_open_connection(connection, "hapdcfg", 0) < 0) {
        CM_LOG(LOG_ERROR, " Connection to the Hostapd failed ");
        return -1;
    }
    hostapd_command command = {};
    const wipe_guard guard(command.info.pmk);
    command.code = hostapd_command_client_info;
    command.info = *msg;
    hostapd_config_send_command(&command, connection);
    hostapd_config_close_connection(connection);
    return 0;
}
