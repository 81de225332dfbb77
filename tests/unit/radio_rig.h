// The radio as a process, and the test in the daemon's place.
#ifndef TESTS_UNIT_RADIO_RIG_H
#define TESTS_UNIT_RADIO_RIG_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "common/local_ipc.h"

// A running program with its standard output and error.
class child_process {
public:
    explicit child_process(const std::vector<std::string> &command);
    ~child_process();  // kills it if it still runs
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;

    void signal(int number) const;
    // The exit status, or -1 when it did not end in time.
    int wait();
    // Its output so far.
    const std::string &output();

private:
    pid_t pid_ = -1;
    int output_fd_ = -1;
    std::string output_;
    std::optional<int> status_;
};

struct driver_reply {
    int error = -1;
    std::vector<std::uint8_t> data;
};

// A client of the driver service (wire/driver_service.h).
class driver_connection {
public:
    explicit driver_connection(const std::string &ifname);
    ~driver_connection();
    driver_connection(const driver_connection &) = delete;
    driver_connection &operator=(const driver_connection &) = delete;

    // Error -1 when there is no reply.
    driver_reply ask(unsigned long request, const std::vector<std::uint8_t> &data = {}) const;
    // Waits until the server closes the connection; false when it does not.
    bool is_closed() const;

private:
    std::string ifname_;
    int fd_ = -1;
};

// One request over a connection of its own.
driver_reply ask_driver(const std::string &ifname, unsigned long request, const std::vector<std::uint8_t> &data = {});

// Waits for the next message; none when none arrives in time.
std::optional<kx::ipc_message> next_message(kx::ipc_socket &endpoint);

// Requests all pages of the radio's stations through `from_socket`.
nlohmann::json ask_stations(kx::ipc_socket &from_socket);

bool eventually(const std::function<bool()> &done);

#endif
