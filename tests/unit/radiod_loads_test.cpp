// When the daemon has loaded its VAPs, seen by its driver requests.
#include <gtest/gtest.h>

#include "radiod/daemon_loads.h"
#include "tests/unit/event_rig.h"

namespace radiod {
namespace {

class radiod_loads : public testing::Test, protected event_rig {
protected:
    radiod_loads() {
        seen_.on_load = [this] { loads_++; };
    }
    void report() {
        seen_.addresses_requested();  // its VAPs
        seen_.stations_requested();
        seen_.addresses_requested();  // with the stations of each
        seen_.stations_requested();
    }
    int loads_in_a_while() {
        run_until([] { return false; }, daemon_loads::quiet_time * 3 / 2);
        return loads_;
    }

    daemon_loads seen_{base.get(), 2};
    int loads_ = 0;
};

TEST_F(radiod_loads, of_addresses_alone) {
    seen_.addresses_requested();
    EXPECT_EQ(loads_in_a_while(), 1);
    seen_.addresses_requested();
    seen_.addresses_requested();
    EXPECT_EQ(loads_in_a_while(), 2);
}

TEST_F(radiod_loads, are_no_reports) {
    report();
    EXPECT_EQ(loads_in_a_while(), 0);
    report();
    report();
    EXPECT_EQ(loads_in_a_while(), 0);
}

TEST_F(radiod_loads, are_seen_beside_reports) {
    seen_.addresses_requested();
    report();
    EXPECT_EQ(loads_in_a_while(), 1);
}

TEST_F(radiod_loads, are_no_reports_when_a_vap_has_no_interface) {
    seen_.addresses_requested();
    seen_.stations_requested();
    seen_.addresses_requested();
    EXPECT_EQ(loads_in_a_while(), 0);
}

}  // namespace
}  // namespace radiod
