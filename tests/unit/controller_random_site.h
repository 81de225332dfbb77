// A site whose access points send random records, as they do and as they never should.
#ifndef TESTS_UNIT_CONTROLLER_RANDOM_SITE_H
#define TESTS_UNIT_CONTROLLER_RANDOM_SITE_H

#include <random>

#include "controller/site.h"

namespace controller_test {

class random_site {
public:
    explicit random_site(unsigned seed) : random_(seed) {}

    controller::site site;

    // One random event: a record, a report, a lost or new tunnel, a tick, or an operator's command.
    controller::outbox step();

private:
    unsigned below(unsigned end) { return static_cast<unsigned>(random_() % end); }
    controller::mac_address some_ap() { return {2, 0, 0, 0, static_cast<std::uint8_t>(below(6)), 0}; }
    controller::mac_address some_bssid(const controller::mac_address &ap);
    controller::mac_address some_station() { return {6, 0, 0, 0, 0, static_cast<std::uint8_t>(below(24))}; }

    controller::record some_record(const controller::mac_address &ap);
    controller::message some_report(const controller::mac_address &ap);
    controller::outbox some_command();

    std::mt19937 random_;
};

}  // namespace controller_test

#endif
