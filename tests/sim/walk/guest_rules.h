// What has to be done for unauthorised guests, told by the rules and not by the daemon's code: the shell commands that
// install and remove their ARP entries and routes, the VAPs' counts, and who is a guest.
#ifndef TESTS_SIM_WALK_GUEST_RULES_H
#define TESTS_SIM_WALK_GUEST_RULES_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "steps.h"

namespace sim {

class guest_rules {
public:
    // What follows from this step in the state that the daemon is in now.
    explicit guest_rules(const step &s);
    // One sentence for each rule that was broken. `commands`: what the daemon ran.
    std::vector<std::string> faults(const std::vector<std::string> &commands) const;

private:
    void new_address(const step &s);
    void authorised(const step &s);
    void left(const step &s);
    void who_is_guest(const step &s);
    void expect(const std::vector<std::string> &commands);
    void remove_entries(int vap, const bytes &ip);

    std::vector<std::string> commands_;
    std::array<uint32_t, VAPS> counts_;
    std::array<bool, STATIONS> guest_;  // if it is a client at all
};

}  // namespace sim

#endif
