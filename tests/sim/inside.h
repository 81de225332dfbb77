// Whether the daemon's code runs, or the simulated platform's.
#ifndef TESTS_SIM_INSIDE_H
#define TESTS_SIM_INSIDE_H

namespace sim {

inline bool daemon_runs = false;

// The daemon's code runs until the scope ends.
class inside {
public:
    inside() { daemon_runs = true; }
    ~inside() { daemon_runs = before_; }
    inside(const inside &) = delete;
    inside &operator=(const inside &) = delete;

private:
    const bool before_ = daemon_runs;
};

// The platform's code runs until the scope ends.
class outside {
public:
    outside() { daemon_runs = false; }
    ~outside() { daemon_runs = before_; }
    outside(const outside &) = delete;
    outside &operator=(const outside &) = delete;

private:
    const bool before_ = daemon_runs;
};

}  // namespace sim

#endif
