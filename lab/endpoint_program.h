// A program of the lab that receives the messages at one local endpoint and prints a line for each.
#ifndef LAB_ENDPOINT_PROGRAM_H
#define LAB_ENDPOINT_PROGRAM_H

#include <functional>
#include <string>
#include <string_view>

#include "common/local_ipc.h"

namespace lab {

struct endpoint_program {
    std::string name;
    std::string description;    // for --help
    std::string_view endpoint;  // platform path, "/kx/radio/hostapd"
    // Handles one message and returns its line, as JSON or as text. Messages may be sent through `endpoint`.
    std::function<std::string(kx::ipc_socket &endpoint, const kx::ipc_message &message, bool json)> handle;
};

// Runs the program with its command line until SIGINT or SIGTERM. Returns the exit status; prints errors on standard
// error.
int run(const endpoint_program &program, int argc, char **argv);

}  // namespace lab

#endif
