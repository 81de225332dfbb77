#include "services/hostapd.h"

#include <cstring>
#include <string>

#include "inside.h"
#include "kx/hapdcfg.h"
#include "platform.h"
#include "services/names.h"

namespace sim {

extern "C" {

int hostapd_config_open_connection(void *ctx, const char *client_name, int flags) {
    const outside daemon;
    const auto *context = static_cast<const uint8_t *>(ctx);
    if (bytes(context, context + HOSTAPD_CONFIG_CTX_SIZE) != zeros(HOSTAPD_CONFIG_CTX_SIZE)) {
        here().complain("the hostapd connection's context is not zero");
    }
    const int result =
        here().recorded("hostapd_config_open_connection",
                        "hostapd_config_open_connection(" + std::string(client_name) + ", " + number(flags) + ")", 0);
    memset(ctx, 0xee, HOSTAPD_CONFIG_CTX_SIZE);
    if (result >= 0) {
        here().hostapd_connection = ctx;
    }
    return result;
}

int hostapd_config_send_command(const void *cmd, void *ctx) {
    const outside daemon;
    if (ctx != here().hostapd_connection) {
        here().complain("a command to hostapd without a connection");
    }
    return here().recorded(
        "hostapd_config_send_command",
        "hostapd_config_send_command(" + show(static_cast<const uint8_t *>(cmd), HOSTAPD_CONFIG_CMD_SIZE) + ")", 0);
}

int hostapd_config_close_connection(void *ctx) {
    const outside daemon;
    if (ctx != here().hostapd_connection) {
        here().complain("a hostapd connection that is not open is closed");
    }
    here().hostapd_connection = nullptr;
    return here().recorded("hostapd_config_close_connection", "hostapd_config_close_connection", 0);
}

}  // extern "C"

}  // namespace sim
