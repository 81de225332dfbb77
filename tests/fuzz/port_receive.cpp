// The port's local endpoints, of the daemon and of other processes. Input: datagrams, each a byte (bit 0: the sender
// has no name; bit 1: the length word is corrected) and a block. Real sockets carry them.
#include <event2/event.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "common/ipc_endpoint.h"
#include "common/local_ipc.h"
#include "common/paths.h"
#include "input.h"
#include "kx/apcomm.h"
#include "kx/kx_eloop.h"
#include "kx/kx_ipc.h"
#include "platform/linux/event_base.h"
#include "require.h"

// The port reports dropped messages in the system log.
extern "C" void __wrap_syslog(int priority, const char *format, ...);
extern "C" void __wrap_syslog(int, const char *, ...) {}

namespace {

constexpr size_t BUFFER_SIZE = 16384;
constexpr uint32_t APCOMM_MSG = 123;

using message = std::vector<uint8_t>;

const std::array<uint8_t, BUFFER_SIZE> zeros{};
std::array<uint8_t, BUFFER_SIZE> rx_buf;
const message *expected = nullptr;  // the next message to be delivered
unsigned delivered = 0;

uint32_t word(const uint8_t *at) { return fuzz::input({at, 4}).word32(); }

void controller_message(void *, const uint8_t *msg, uint32_t len) {
    fuzz::require(len <= 16384, "a controller message has at most 16384 bytes");
    message copy(msg, msg + len);
    fuzz::require(copy.size() == len, "a controller message can be read");
}

void controller_status(uint32_t, uint32_t status) {
    fuzz::require(status <= APCOMM_STATUS_UP, "the status is one of two");
}

void receive(kx_ipc_rx *rx) {
    delivered++;
    fuzz::require(reinterpret_cast<uint8_t *>(rx->hdr) == rx_buf.data() && rx->payload == rx_buf.data() + 12,
                  "a message lies in the receive buffer");
    fuzz::require(expected != nullptr && memcmp(rx_buf.data(), expected->data(), expected->size()) == 0,
                  "the message is what was sent");
    fuzz::require(memcmp(rx_buf.data() + expected->size(), zeros.data(), rx_buf.size() - expected->size()) == 0,
                  "the receive buffer is zero past the message");
    if (word(rx_buf.data()) == APCOMM_MSG) {
        apcomm_msg_rcvd(rx->payload);
    }
    memset(rx->payload, 0xa5, KX_IPC_RX_SCRATCH);
    if ((word(rx_buf.data() + 8) & KX_IPC_FLAG_REQUEST) != 0) {
        const uint8_t body[3] = {1, 2, 3};
        kx_ipc_eloop_resp(rx, body, sizeof body);
    }
}

// A directory for the sockets, removed at the end of the process.
class private_root {
public:
    private_root() {
        fuzz::require(mkdtemp(path_.data()) != nullptr, "there is a directory for the sockets");
        setenv("KX_ROOT", path_.c_str(), 1);
    }
    ~private_root() {
        for (const std::string_view name : {kx::endpoint_client_mgr, kx::endpoint_apcomm}) {
            unlink(kx::place(name).c_str());
        }
        for (const char *directory : {"/kx/ipc", "/kx", ""}) {
            rmdir((path_ + directory).c_str());
        }
    }
    private_root(const private_root &) = delete;
    private_root &operator=(const private_root &) = delete;

private:
    std::string path_ = "/tmp/fuzz_port_receive.XXXXXX";
};

class port_rig {
public:
    port_rig() {
        fuzz::require(kx_eloop_init(nullptr) == 0, "there is an event loop");
        fuzz::require(kx_ipc_init("/kx/ipc/client_mgr", rx_buf.data(), rx_buf.size(), receive, 0) == 0,
                      "there is an endpoint");
        listen_as_apd();
        apcomm_recv_register(controller_message);
        apcomm_status_register(controller_status);
        fuzz::require(apcomm_register_kx_ipc(kx_ipc_eloop_get_ipc()) == 0, "there is an apd");
        const int large = 1 << 20;
        setsockopt(unnamed_, SOL_SOCKET, SO_SNDBUF, &large, sizeof large);
        setsockopt(named_.fd(), SOL_SOCKET, SO_SNDBUF, &large, sizeof large);
        others_.on_dropped = [](const kx::ipc_datagram &each) {
            fuzz::require(each.fault != nullptr, "a drop has a reason");
        };
    }

    void send(bool without_name, const message &sent) {
        const bool good = is_well_formed(sent);
        if (!send_to(kx::endpoint_client_mgr, without_name, sent)) {
            return;  // too large for the kernel
        }
        expected = good ? &sent : nullptr;
        delivered = 0;
        event_base_loop(kx::process_event_base(), EVLOOP_NONBLOCK);
        fuzz::require(delivered == (good ? 1u : 0u), "well-formed messages are delivered, others dropped");
        take_answer(without_name, sent);

        send_to(kx::endpoint_captive_app, without_name, sent);
        const std::optional<kx::ipc_message> taken = others_.receive();
        fuzz::require(taken.has_value() == good, "well-formed messages are received, others dropped");
        fuzz::require(!good || is_same(*taken, sent), "the message received is what was sent");
    }

private:
    static bool is_well_formed(const message &sent) {
        return sent.size() >= 12 && sent.size() <= BUFFER_SIZE && word(&sent[4]) == sent.size() - 12;
    }

    static bool is_same(const kx::ipc_message &taken, const message &sent) {
        return taken.id == word(sent.data()) && taken.flags == word(&sent[8]) &&
               std::equal(taken.payload.begin(), taken.payload.end(), sent.begin() + 12, sent.end());
    }

    void take_answer(bool without_name, const message &sent) {
        const std::optional<kx::ipc_message> answer = named_.receive();
        const bool wanted = delivered == 1 && !without_name && (word(&sent[8]) & KX_IPC_FLAG_REQUEST) != 0;
        fuzz::require(answer.has_value() == wanted, "a request is answered, a notification is not");
        fuzz::require(!wanted || (answer->id == word(sent.data()) && answer->flags == word(&sent[8])),
                      "an answer has the request's id and flags");
    }

    bool send_to(std::string_view endpoint, bool without_name, const message &sent) {
        const kx::ipc_address address = kx::make_ipc_address(kx::place(endpoint));
        const int fd = without_name ? unnamed_ : named_.fd();
        const ssize_t size = sendto(fd, sent.data(), sent.size(), MSG_DONTWAIT, address.get(), address.length);
        fuzz::require(size >= 0 || errno == EMSGSIZE, "a datagram can be sent");
        return size >= 0;
    }

    static void listen_as_apd() {
        const kx::ipc_address address = kx::make_ipc_address(kx::place(kx::endpoint_apcomm));
        const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        fuzz::require(bind(fd, address.get(), address.length) == 0 && listen(fd, 1) == 0, "apd can be played");
    }

    private_root root_;
    kx::ipc_socket named_ = kx::ipc_socket::anonymous();
    kx::ipc_socket others_ = kx::ipc_socket::open(kx::endpoint_captive_app);
    int unnamed_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

}  // namespace

void fuzz_one(std::span<const uint8_t> bytes) {
    static port_rig rig;
    fuzz::input in(bytes);
    while (!in.empty()) {
        const uint8_t kind = in.byte();
        const auto content = in.block();
        message sent(content.begin(), content.end());
        if ((kind & 2) != 0 && sent.size() >= 12) {
            const auto length = static_cast<uint32_t>(sent.size() - 12);
            for (unsigned i = 0; i < 4; i++) {
                sent[4 + i] = static_cast<uint8_t>(length >> (24 - 8 * i));
            }
        }
        rig.send((kind & 1) != 0, sent);
    }
}
