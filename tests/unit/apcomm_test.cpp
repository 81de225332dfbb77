#include "kx/apcomm.h"

#include <event2/event.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>
#include <system_error>
#include <utility>

#include "common/ipc_endpoint.h"
#include "common/paths.h"
#include "kx/kx_eloop.h"
#include "platform/linux/event_base.h"
#include "platform/linux/port_losses.h"
#include "tests/unit/private_root.h"
#include "wire/apcomm_channel.h"
#include "wire/big_endian.h"

namespace {

using bytes = std::vector<std::uint8_t>;
using packet = std::pair<std::uint32_t, bytes>;  // destination and message

const packet registration{kx::apcomm_destination_apd, {}};

int accept_quietly(int listener) { return accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC); }

// apd's end of the connection.
class fake_apd {
public:
    fake_apd() : listener_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
        kx::make_private_directories(kx::place("/kx/ipc"));
        kx::ipc_address address = kx::make_ipc_address(kx::place(kx::endpoint_apcomm));
        if (bind(listener_, address.get(), address.length) != 0 || listen(listener_, 4) != 0) {
            throw std::system_error(errno, std::generic_category(), "fake apd");
        }
    }
    ~fake_apd() {
        close(listener_);
        close(connection_);
        unlink(kx::place(kx::endpoint_apcomm).c_str());
    }
    fake_apd(const fake_apd &) = delete;
    fake_apd &operator=(const fake_apd &) = delete;

    std::optional<packet> receive() {
        if (connection_ < 0 && (connection_ = accept_quietly(listener_)) < 0) {
            return std::nullopt;
        }
        bytes buffer(20'000);
        ssize_t size = recv(connection_, buffer.data(), buffer.size(), 0);
        if (size < 4) {
            return std::nullopt;
        }
        be32 destination{};
        std::memcpy(&destination, buffer.data(), sizeof(destination));
        return packet{destination, {buffer.begin() + 4, buffer.begin() + size}};
    }

private:
    int listener_;
    int connection_ = -1;
};

std::vector<std::pair<std::uint32_t, std::uint32_t>> statuses;
std::vector<bytes> messages;
int done_calls = 0;

void status_rcvd(std::uint32_t ctrl_ip, std::uint32_t status) { statuses.emplace_back(ctrl_ip, status); }
void message_rcvd(void *, const std::uint8_t *message, std::uint32_t length) {
    messages.emplace_back(message, message + length);
}
void send_done() { done_calls++; }

template <typename T>
bytes bytes_of(const T &record) {
    const auto *start = reinterpret_cast<const std::uint8_t *>(&record);
    return {start, start + sizeof(record)};
}

bytes status_payload(std::uint32_t status, std::uint32_t ctrl_ip) {
    kx::apcomm_status report{};
    report.kind = kx::apcomm_kind_status;
    report.status = status;
    report.ctrl_ip = ctrl_ip;
    return bytes_of(report);
}

bytes part_payload(std::uint32_t total, std::uint32_t offset, std::uint32_t length, const bytes &body) {
    kx::apcomm_part part{};
    part.kind = kx::apcomm_kind_part;
    part.total = total;
    part.offset = offset;
    part.length = length;
    bytes payload = bytes_of(part);
    payload.insert(payload.end(), body.begin(), body.end());
    return payload;
}

// Hands a payload to the library as it lies in the daemon's receive buffer: in the heap, so that the sanitizer sees
// every access outside of it.
void receive_payload(const bytes &payload) {
    bytes buffer(kx::ipc_message_max, 0);
    ASSERT_LE(kx::ipc_header_size + payload.size(), buffer.size());
    std::copy(payload.begin(), payload.end(), buffer.begin() + kx::ipc_header_size);
    apcomm_msg_rcvd(buffer.data() + kx::ipc_header_size);
}

bytes counting(std::size_t size) {
    bytes message(size);
    for (std::size_t i = 0; i < size; i++) {
        message[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    }
    return message;
}

bytes numbered(std::uint32_t number, std::size_t size) {
    bytes message(size, static_cast<std::uint8_t>(number));
    std::memcpy(message.data(), &number, sizeof(number));
    return message;
}

class apcomm : public private_root {
protected:
    apcomm() {
        if (kx::process_event_base() == nullptr) {
            kx_eloop_init(nullptr);
        }
        statuses.clear();
        messages.clear();
        done_calls = 0;
        apcomm_recv_register(message_rcvd);
        apcomm_status_register(status_rcvd);
    }
    // Leaves the library without a connection. It then tries to connect by itself.
    ~apcomm() override {
        auto losses = count_losses();
        if (apd) {
            apd.reset();
            run_until([&] { return count_losses() > losses; });
        }
    }

    std::ptrdiff_t count_losses() const {
        auto lines = syslog_lines();
        return std::count(lines.begin(), lines.end(), "apcomm: connection to apd lost");
    }

    static bool run_until(const std::function<bool()> &done) {
        auto limit = std::chrono::steady_clock::now() + deadline;
        while (!done()) {
            if (std::chrono::steady_clock::now() > limit) {
                return false;
            }
            timeval tick{0, 2000};
            event_base_once(
                kx::process_event_base(), -1, EV_TIMEOUT, [](int, short, void *) {}, nullptr, &tick);
            event_base_loop(kx::process_event_base(), EVLOOP_ONCE);
        }
        return true;
    }

    static int send(const bytes &message, std::uint32_t dest = APCOMM_DEST_CLIENT_MGR) {
        return apcomm_send_msg(dest, message.data(), static_cast<std::uint32_t>(message.size()), 0, send_done);
    }

    std::optional<packet> next_packet() {
        std::optional<packet> found;
        run_until([&] { return (found = apd->receive()).has_value(); });
        return found;
    }

    void start_registered() {
        static bool registered_before = false;
        apd.emplace();
        if (!std::exchange(registered_before, true)) {
            EXPECT_EQ(apcomm_register_kx_ipc(nullptr), 0);
        }
        ASSERT_EQ(next_packet(), registration);
    }

    void start_up() {
        start_registered();
        receive_payload(status_payload(APCOMM_STATUS_UP, 0x7f000001));
        ASSERT_EQ(statuses.back(), std::make_pair(0x7f000001U, APCOMM_STATUS_UP));
    }

    // Sends numbered messages until one is refused. Returns the number of accepted messages.
    static std::uint32_t fill(std::size_t size) {
        std::uint32_t count = 0;
        while (send(numbered(count, size)) == 0) {
            count++;
        }
        return count;
    }

    std::optional<fake_apd> apd;
};

TEST_F(apcomm, registers_and_sends_once_the_tunnel_is_up) {
    start_registered();
    EXPECT_NE(send({1, 2}), 0);
    receive_payload(status_payload(APCOMM_STATUS_UP, 0x0a000001));
    EXPECT_EQ(statuses, (decltype(statuses){{0x0a000001, APCOMM_STATUS_UP}}));
    EXPECT_EQ(send({1, 2}), 0);
    EXPECT_EQ(done_calls, 1);
    EXPECT_EQ(next_packet(), (packet{106, {1, 2}}));

    receive_payload(status_payload(APCOMM_STATUS_DOWN, 0));
    EXPECT_EQ(statuses.back(), std::make_pair(0U, APCOMM_STATUS_DOWN));
    EXPECT_NE(send({1, 2}), 0);
    EXPECT_EQ(done_calls, 1);
}

TEST_F(apcomm, connects_by_itself_when_apd_comes_later) {
    EXPECT_LT(apcomm_register_kx_ipc(nullptr), 0);
    apd.emplace();
    EXPECT_EQ(next_packet(), registration);
}

TEST_F(apcomm, registers_again_on_the_same_connection) {
    start_registered();
    EXPECT_EQ(apcomm_register_kx_ipc(nullptr), 0);
    EXPECT_EQ(next_packet(), registration);
}

TEST_F(apcomm, bounds_what_it_sends) {
    start_up();
    EXPECT_NE(send(bytes(16385)), 0);
    EXPECT_NE(send({1}, kx::apcomm_destination_apd), 0);
    EXPECT_EQ(send(counting(16384)), 0);
    EXPECT_EQ(next_packet(), (packet{106, counting(16384)}));
    for (std::size_t size = 0; size < 100; size++) {
        EXPECT_EQ(send(counting(size)), 0);
        EXPECT_EQ(next_packet(), (packet{106, counting(size)}));
    }
}

TEST_F(apcomm, keeps_order_behind_a_slow_reader_and_refuses_when_full) {
    start_up();
    std::uint32_t sent = fill(1000);
    // The ring holds this many; the socket holds more.
    EXPECT_GE(sent, kx::apcomm_waiting_max / 1008);
    EXPECT_EQ(done_calls, static_cast<int>(sent));
    for (std::uint32_t i = 0; i < sent; i++) {
        ASSERT_EQ(next_packet(), (packet{106, numbered(i, 1000)})) << i;
    }
    // Messages of other lengths wrap around the end of the ring at other places.
    for (std::size_t size : {977U, 16384U, 63U, 40U}) {
        sent = fill(size);
        ASSERT_GT(sent, 10U);
        for (std::uint32_t i = 0; i < sent; i++) {
            ASSERT_EQ(next_packet(), (packet{106, numbered(i, size)})) << i;
        }
    }
    EXPECT_EQ(statuses.size(), 1u);
    // After a second there is a line about the refused ones.
    EXPECT_TRUE(std::ranges::none_of(syslog_lines(), [](const auto &line) { return line.starts_with("apcomm:"); }));
}

TEST_F(apcomm, reports_messages_that_wait_when_the_tunnel_goes_down) {
    start_up();
    std::uint32_t sent = fill(1000);
    receive_payload(status_payload(APCOMM_STATUS_DOWN, 0));
    std::uint32_t passed = 0;
    while (apd->receive()) {
        passed++;
    }
    ASSERT_LT(passed, sent);
    EXPECT_EQ(kx::port_losses().total(kx::loss_unsent), sent - passed);
    EXPECT_EQ(kx::port_losses().total(kx::loss_queue_full), 1U);
    const std::string line =
        std::to_string(sent - passed) + " messages for the controller dropped: the tunnel ended before they were sent";
    EXPECT_TRUE(run_until([&] { return std::ranges::count(syslog_lines(), line) == 1; }));
}

TEST_F(apcomm, notices_that_apd_died_and_reconnects) {
    start_up();
    fill(1000);
    apd.reset();
    ASSERT_TRUE(run_until([&] { return statuses.size() == 2; }));
    EXPECT_EQ(statuses.back().second, APCOMM_STATUS_DOWN);
    EXPECT_NE(send({1}), 0);
    auto lines = syslog_lines();
    EXPECT_EQ(lines, std::vector<std::string>{"apcomm: connection to apd lost"});
    EXPECT_GT(kx::port_losses().total(kx::loss_unsent), 0U);
    EXPECT_EQ(kx::port_losses().total(kx::loss_no_tunnel), 1U);

    receive_payload(status_payload(APCOMM_STATUS_UP, 1));  // sent before it died
    EXPECT_EQ(statuses.size(), 2U);
    EXPECT_NE(send({1}), 0);

    apd.emplace();
    EXPECT_EQ(next_packet(), registration);
    receive_payload(status_payload(APCOMM_STATUS_UP, 2));
    EXPECT_EQ(send({9}), 0);
    EXPECT_EQ(next_packet(), (packet{106, {9}}));
}

TEST_F(apcomm, delivers_messages_in_one_part_and_in_two) {
    receive_payload(part_payload(0, 0, 0, {}));
    receive_payload(part_payload(5, 0, 5, {1, 2, 3, 4, 5}));
    bytes longest_part = counting(kx::apcomm_part_max);
    receive_payload(part_payload(kx::apcomm_part_max, 0, kx::apcomm_part_max, longest_part));
    ASSERT_EQ(messages, (std::vector<bytes>{{}, {1, 2, 3, 4, 5}, longest_part}));

    bytes whole = counting(16384);
    bytes first(whole.begin(), whole.begin() + kx::apcomm_part_max);
    bytes second(whole.begin() + kx::apcomm_part_max, whole.end());
    receive_payload(part_payload(16384, 0, kx::apcomm_part_max, first));
    EXPECT_EQ(messages.size(), 3U);
    receive_payload(part_payload(16384, kx::apcomm_part_max, static_cast<std::uint32_t>(second.size()), second));
    ASSERT_EQ(messages.size(), 4U);
    EXPECT_EQ(messages[3], whole);
    EXPECT_TRUE(syslog_lines().empty());
}

TEST_F(apcomm, drops_parts_out_of_turn) {
    receive_payload(part_payload(10, 5, 5, bytes(5)));
    receive_payload(part_payload(10, 0, 4, bytes(4)));
    receive_payload(part_payload(10, 5, 5, bytes(5)));
    receive_payload(part_payload(10, 0, 5, bytes(5)));
    receive_payload(part_payload(11, 5, 6, bytes(6)));
    receive_payload(part_payload(10, 5, 5, bytes(5)));
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(syslog_lines(), std::vector<std::string>{"apcomm: dropped a message from apd: a part is missing"});
    EXPECT_EQ(kx::port_losses().total(kx::loss_from_apd), 4U);

    receive_payload(part_payload(4, 0, 2, {1, 2}));
    receive_payload(part_payload(4, 0, 2, {5, 6}));
    receive_payload(part_payload(4, 2, 2, {7, 8}));
    EXPECT_EQ(messages, (std::vector<bytes>{{5, 6, 7, 8}}));
}

TEST_F(apcomm, drops_lengths_out_of_bounds) {
    constexpr std::uint32_t all = 0xffffffff;
    const std::vector<std::array<std::uint32_t, 3>> hostile{
        {16385, 0, 16356}, {all, 0, all},     {100, 0, 101},     {100, 101, 0},          {100, all, 2},
        {100, 100, all},   {100, 1, all - 1}, {16384, 0, 16357}, {16384, 0x80000000, 1}, {16384, 0, 16384}};
    for (const auto &[total, offset, length] : hostile) {
        receive_payload(part_payload(total, offset, length, bytes(kx::apcomm_part_max, 0xff)));
    }
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(syslog_lines(), std::vector<std::string>{"apcomm: dropped a message from apd: length out of bounds"});
    EXPECT_EQ(kx::port_losses().total(kx::loss_from_apd), hostile.size());
}

TEST_F(apcomm, drops_unknown_kinds_and_statuses) {
    start_registered();
    receive_payload({});
    receive_payload({0, 0, 0, 3});
    receive_payload(bytes(kx::ipc_message_max - kx::ipc_header_size, 0xff));
    receive_payload(status_payload(2, 1));
    receive_payload(status_payload(0x100, 1));
    EXPECT_TRUE(messages.empty());
    EXPECT_TRUE(statuses.empty());
    EXPECT_EQ(kx::port_losses().total(kx::loss_from_apd), 5U);
}

TEST_F(apcomm, survives_payloads_cut_anywhere) {
    start_registered();
    bytes body = counting(40);
    for (const bytes &whole : {status_payload(1, 0x01020304), part_payload(40, 0, 40, body),
                               part_payload(80, 0, 40, body), part_payload(80, 40, 40, body)}) {
        for (std::size_t size = 0; size < whole.size(); size++) {
            receive_payload({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)});
        }
    }
    // A cut message keeps its stated length; the missing bytes are zero.
    for (const bytes &message : messages) {
        EXPECT_TRUE(message.empty() || message.size() == 40 || message.size() == 80) << message.size();
    }
    EXPECT_GE(messages.size(), 40U);
}

}  // namespace
