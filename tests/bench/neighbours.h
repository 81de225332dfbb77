// One process that plays all processes to which the client manager talks.
#ifndef TESTS_BENCH_NEIGHBOURS_H
#define TESTS_BENCH_NEIGHBOURS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

using bytes = std::vector<std::uint8_t>;

// The receiver of a message from the measured process.
enum class receiver : std::size_t { portal, hostapd, monitor, controller, system_log, radio };
inline constexpr std::size_t receivers = 6;

struct sent_message {
    receiver to;
    std::size_t size;
};
using counts = std::array<std::size_t, receivers>;
counts count(const std::vector<sent_message> &messages);

// The endpoints below one $KX_ROOT. The measured process connects to them and owns "/kx/ipc/client_mgr". Throws
// std::runtime_error, also when the process does not do what is expected within 20 s.
class neighbours {
public:
    // `system_log`: from open_private_system_log(), shared with others. The radio owns wlan0 and further interfaces,
    // `vaps` in all.
    neighbours(const std::string &root, int system_log, unsigned vaps);
    ~neighbours();
    neighbours(const neighbours &) = delete;
    neighbours &operator=(const neighbours &) = delete;

    const std::string &root() const { return root_; }
    // Connects to the endpoint of the measured process, which has announced itself, and accepts its connection for
    // messages to the controller.
    void connect();
    // Queues one local message for the measured process.
    void send(const bytes &message);
    // Serves the endpoints until everything in `expected` has arrived.
    void await(const counts &expected);
    // Waits until the process has handled all messages. Returns what it sent meanwhile.
    std::vector<sent_message> settle();
    // The same, but returns what it sent since the last call of settle() or await().
    std::vector<sent_message> settle_all();
    // Sets the station list of the radio's answers.
    void set_stations(bytes records) { stations_ = std::move(records); }

private:
    // Waits until a message arrives, or until `subject_events` of poll(2) hold for the socket to the measured process.
    void serve(short subject_events = 0);
    void take_all(receiver from);
    void answer_driver_requests();
    bool answer_driver_request(int client);

    std::string root_;
    std::array<int, receivers> fds_{};
    std::vector<int> driver_clients_;
    int controller_listener_ = -1;
    int subject_ = -1;
    bytes stations_;
    std::vector<sent_message> received_;
};

void append(bytes &to, const void *more, std::size_t size);
// A local message: header and payload.
bytes local_message(std::uint32_t id, const bytes &payload = {});

}  // namespace bench

#endif
