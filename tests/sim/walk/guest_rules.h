// A model of the rules for unauthorised guests, independent of the daemon's code: the shell commands that install
// and remove their ARP entries and routes, the VAPs' counts, and who is a guest.
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
    // Applies the step to the daemon's current state.
    explicit guest_rules(const step &s);
    // One sentence for each broken rule. `commands`: the commands that the daemon ran.
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
    std::array<bool, STATIONS> guest_;  // meaningless for a station that is no client
};

}  // namespace sim

#endif
