// A site of the controller without its network: access points with 16 VAPs each, and stations that join, roam and
// leave in no order. The controller's functions are measured, and nothing that the access points do.
#ifndef TESTS_BENCH_CONTROLLER_SUBJECT_H
#define TESTS_BENCH_CONTROLLER_SUBJECT_H

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "common/event_ptr.h"
#include "controller/commands.h"
#include "controller/exchange.h"

namespace bench {

// Microseconds of CPU time by what was measured.
using cpu_times = std::map<std::string, double>;

class controller_subject {
public:
    controller_subject(unsigned aps, unsigned stations);

    // Lets some stations leave, join and roam, and reads the listings from their first page to their last.
    cpu_times measure();
    // An access point gets the list of all clients, loses its tunnel and comes back. What is measured afterwards has
    // more to do.
    cpu_times measure_list();

private:
    struct place {
        unsigned ap, vap;
    };
    using messages = std::vector<controller::message>;

    place anywhere();
    std::vector<unsigned> next_stations();
    void start_access_point(unsigned ap);
    controller::message report_of(unsigned ap) const;

    double handle(const messages &from);
    double handle_encoded(const messages &from);
    messages leave(const std::vector<unsigned> &who) const;
    messages join(const std::vector<unsigned> &who);
    messages roam(const std::vector<unsigned> &who);
    void note_requests(const controller::outbox &sent);
    void report_as_requested(cpu_times &to);
    void read_pages(const std::string &name, cpu_times &to, const std::string &shown = {});

    std::mt19937 random_{1};
    unsigned aps_;
    kx::event_base_ptr base_{event_base_new()};
    controller::output output_;
    controller::exchange exchange_;
    controller::tunnels tunnels_;
    controller::tunnels::callbacks from_tunnels_;
    controller::commands commands_;
    controller::site &site_;
    std::vector<place> stations_;
    std::vector<unsigned> order_;
    std::size_t next_ = 0;
    std::set<controller::mac_address> requested_;  // access points that owe a report
};

}  // namespace bench

#endif
