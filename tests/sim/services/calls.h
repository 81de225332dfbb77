// The daemon's calls of the platform: recorded effects, and rules that make calls fail.
#ifndef TESTS_SIM_SERVICES_CALLS_H
#define TESTS_SIM_SERVICES_CALLS_H

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

class calls {
public:
    std::vector<std::string> effects;     // since the last look
    std::vector<std::string> complaints;  // breaches of the contract

    // The Nth call of `call` from now on (1 is the next), or every one from the Nth, has no effect and returns
    // `result`. A rule that never applied is a complaint.
    void fail_nth(std::string_view call, unsigned n, int result = -1);
    void fail_from(std::string_view call, unsigned n, int result = -1);
    // Ends all rules. The end of a test does the same.
    void end_rules();
    // Runs `what` at every call of `call`, before the call does anything. "log" is a line written to the log, "open"
    // the dump file's opening, "write" a write to it.
    void on(std::string_view call, std::function<void()> what);

    // --- for the services

    void record(const std::string &what) { effects.push_back(what); }
    void complain(const std::string &what) { complaints.push_back(what); }
    // Counts a call. Returns the result that a rule demands, or `normal`.
    int outcome(std::string_view call, int normal);
    // The same, and records the effect, with the result if it is not the normal one.
    int recorded(std::string_view call, const std::string &what, int normal);

private:
    struct rule {
        std::string call;
        unsigned nth;
        bool onwards;
        int result;
        unsigned calls;
        bool fired;
    };

    std::vector<rule> rules_;
    std::map<std::string, std::function<void()>, std::less<>> hooks_;
};

}  // namespace sim

#endif
