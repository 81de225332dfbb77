// The port's side of hostapd's control endpoint (wire/hostapd_endpoint.h): one datagram socket, kept for the life of
// the process. Opening a connection connects it to the process that serves the endpoint then.
#include "kx/hapdcfg.h"

#include <sys/uio.h>

#include <array>
#include <system_error>

#include "common/ipc_endpoint.h"
#include "common/paths.h"
#include "wire/hostapd_endpoint.h"
#include "wire/local_messages.h"

namespace {

static_assert(sizeof(hostapd_command) == HOSTAPD_CONFIG_CMD_SIZE);

class hostapd_socket {
public:
    // Returns the file descriptor, or -1 when hostapd cannot be reached.
    int connect() {
        if (fd_ < 0) {
            fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        }
        try {
            kx::ipc_address address = kx::make_ipc_address(kx::place(kx::endpoint_hostapd));
            return ::connect(fd_, address.get(), address.length) == 0 ? fd_ : -1;
        } catch (const std::system_error &) {  // the path is too long
            return -1;
        }
    }

private:
    int fd_ = -1;
};

constinit hostapd_socket hostapd;

struct connection {
    int fd;
};
static_assert(sizeof(connection) <= HOSTAPD_CONFIG_CTX_SIZE);

}  // namespace

int hostapd_config_open_connection(void *ctx, const char *, int) {
    int fd = hostapd.connect();
    static_cast<connection *>(ctx)->fd = fd;
    return fd < 0 ? -1 : 0;
}

int hostapd_config_send_command(const void *cmd, void *ctx) {
    ipc_hdr header =
        kx::make_ipc_header(kx::hostapd_command_message_id, HOSTAPD_CONFIG_CMD_SIZE, kx::ipc_flag_notification);
    std::array<iovec, 2> pieces{{{&header, sizeof(header)}, {const_cast<void *>(cmd), HOSTAPD_CONFIG_CMD_SIZE}}};
    msghdr message{};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    return sendmsg(static_cast<connection *>(ctx)->fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 ? -1 : 0;
}

int hostapd_config_close_connection(void *) { return 0; }
