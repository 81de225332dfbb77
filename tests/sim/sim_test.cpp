#include "sim_test.h"

#include "tables.h"

namespace sim {
namespace {

std::string lines(const std::vector<std::string> &list) {
    std::string out;
    for (const std::string &line : list) {
        out += line + "\n";
    }
    return out;
}

// These two surround the test runner's own printer, which writes to the real standard output.
class before_printer : public testing::EmptyTestEventListener {
    void OnTestPartResult(const testing::TestPartResult &) override {
        if (platform::current != nullptr) {
            platform::current->lend_stdout();
        }
    }
};

class after_printer : public testing::EmptyTestEventListener {
    void OnTestPartResult(const testing::TestPartResult &) override {
        if (platform::current != nullptr) {
            platform::current->take_stdout();
        }
    }
};

}  // namespace

void site::expect(std::initializer_list<steps> expected, const char *file, int line) {
    const testing::ScopedTrace here(file, line, "expected here");
    std::vector<std::string> wanted;
    for (const steps &some : expected) {
        for (const effect &e : some) {
            if (e.level <= log_level) {
                wanted.push_back(e.what);
            }
        }
    }
    EXPECT_EQ(lines(wanted), lines(take_effects()));
}

void site::check_end() {
    finish();
    EXPECT_EQ("", lines(take_effects())) << "left unexpected";
    EXPECT_EQ("", lines(complaints));
    EXPECT_EQ("", lines(client_table_faults()));
    EXPECT_EQ("", lines(acl_cache_faults()));
}

void at_every_log_level(void (*body)(site &)) {
    for (int level = 4; level >= 0 && !testing::Test::HasFailure(); level--) {
        SCOPED_TRACE("at log level " + std::to_string(level));
        site sim(level);
        body(sim);
        sim.check_end();
    }
}

}  // namespace sim

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::TestEventListeners &listeners = testing::UnitTest::GetInstance()->listeners();
    testing::TestEventListener *printer = listeners.Release(listeners.default_result_printer());
    listeners.Append(new sim::before_printer);
    listeners.Append(printer);
    listeners.Append(new sim::after_printer);
    return RUN_ALL_TESTS();
}
