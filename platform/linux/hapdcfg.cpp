// A command travels as hostapd_endpoint.h says, over one datagram socket that is kept: to open a connection is to
// connect it to whoever is hostapd then.
#include "kx/hapdcfg.h"

#include <sys/uio.h>

#include <array>
#include <system_error>

#include "common/ipc_endpoint.h"
#include "common/paths.h"
#include "wire/hostapd_endpoint.h"
#include "wire/local_messages.h"

namespace {

struct connection {
    int fd;
};
static_assert(sizeof(connection) <= HOSTAPD_CONFIG_CTX_SIZE);
static_assert(sizeof(hostapd_command) == HOSTAPD_CONFIG_CMD_SIZE);

// Returns the socket, or -1 when there is no hostapd. Throws std::system_error.
int connect_to_hostapd() {
    kx::ipc_address address = kx::make_ipc_address(kx::place(kx::endpoint_hostapd));
    static int fd = -1;
    if (fd < 0) {
        fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    }
    return fd >= 0 && connect(fd, address.get(), address.length) == 0 ? fd : -1;
}

}  // namespace

int hostapd_config_open_connection(void *ctx, const char *, int) {
    try {
        int fd = connect_to_hostapd();
        static_cast<connection *>(ctx)->fd = fd;
        return fd < 0 ? -1 : 0;
    } catch (const std::system_error &) {
        return -1;
    }
}

int hostapd_config_send_command(const void *cmd, void *ctx) {
    ipc_hdr header =
        kx::make_ipc_header(kx::hostapd_command_message_id, HOSTAPD_CONFIG_CMD_SIZE, kx::ipc_flag_notification);
    std::array<iovec, 2> parts{{{&header, sizeof(header)}, {const_cast<void *>(cmd), HOSTAPD_CONFIG_CMD_SIZE}}};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    return sendmsg(static_cast<connection *>(ctx)->fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 ? -1 : 0;
}

int hostapd_config_close_connection(void *) { return 0; }
