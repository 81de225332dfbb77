#include "client_mgr/neighbours/shell.h"

#include <string>

#include "sim_test.h"

namespace sim {
namespace {

const steps NO_NAME = log(1, "Invalid interface name, command not run");
const steps TOO_LONG = log(1, "Command too long, not run");

void up(const std::string &ifname) { run_command("Running", ifname.c_str(), "up %s", ifname.c_str()); }

}  // namespace

SIM_TEST(shell, announces_a_command_and_runs_it) {
    run_command("Running", nullptr, "do %s %d", "it", 7);
    sim.expect({log(1, "Running (do it 7)"), ran("do it 7")});
}

SIM_TEST(shell, runs_a_command_without_announcement) {
    run_command(nullptr, "ath0", "up %s", "ath0");
    sim.expect({ran("up ath0")});
}

SIM_TEST(shell, does_not_look_at_the_result) {
    sim.fail_nth("system", 1);
    up("ath0");
    sim.expect({log(1, "Running (up ath0)"), failed(ran("up ath0"))});
}

SIM_TEST(shell, takes_every_character_of_an_interface_name) {
    for (int c = 1; c < 256; c++) {
        const bool fine = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' ||
                          c == '_' || c == '-';
        for (const char *front : {"", "a", "0123456789abcd"}) {
            const std::string name = front + std::string(1, static_cast<char>(c));
            SCOPED_TRACE(name);
            up(name);
            if (fine && name != "-") {
                sim.expect({log(1, "Running (up " + name + ")"), ran("up " + name)});
            } else {
                sim.expect({NO_NAME});
            }
        }
    }
}

SIM_TEST(shell, takes_names_of_1_to_15_characters) {
    const std::string name = "0123456789abcdef";
    for (size_t size = 0; size <= 16; size++) {
        SCOPED_TRACE(size);
        const std::string cut = name.substr(0, size);
        up(cut);
        if (size >= 1 && size <= 15) {
            sim.expect({log(1, "Running (up " + cut + ")"), ran("up " + cut)});
        } else {
            sim.expect({NO_NAME});
        }
    }
}

SIM_TEST(shell, takes_no_name_that_reads_as_an_option) {
    for (const char *name : {"-", "-a", "--help", "-i0"}) {
        up(name);
        sim.expect({NO_NAME});
    }
    up("a-b-");
    sim.expect({log(1, "Running (up a-b-)"), ran("up a-b-")});
}

// A name that fills 16 bytes without a terminator is refused, and nothing past it is read.
SIM_TEST(shell, reads_no_name_past_16_bytes) {
    std::string bytes_of_16(16, 'x');
    const std::vector<char> exact(bytes_of_16.begin(), bytes_of_16.end());
    run_command("Running", exact.data(), "up %.16s", exact.data());
    sim.expect({NO_NAME});
}

SIM_TEST(shell, runs_a_command_of_199_bytes_and_none_of_200) {
    const std::string longest(199, 'x');
    run_command("Running", nullptr, "%s", longest.c_str());
    sim.expect({log(1, "Running (" + longest + ")"), ran(longest)});
    for (size_t size : {200u, 201u, 5000u}) {
        run_command("Running", nullptr, "%s", std::string(size, 'x').c_str());
        sim.expect({TOO_LONG});
    }
}

}  // namespace sim
