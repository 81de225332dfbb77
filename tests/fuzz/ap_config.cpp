// The access point's configuration file. Input: the file.
#include "common/ap_config.h"

#include <sys/resource.h>

#include <algorithm>
#include <set>
#include <string>
#include <string_view>

#include "input.h"
#include "memory_file.h"
#include "require.h"

namespace {

// The kernel checks the limit when the stack grows. The size is that of a thread's stack with musl, and as much for the
// fuzzer and the sanitizers.
const bool stack_is_small = [] {
    constexpr rlim_t thread_stack = rlim_t{128} * 1024;
    rlimit limit{};
    getrlimit(RLIMIT_STACK, &limit);
    limit.rlim_cur = 2 * thread_stack;
    return setrlimit(RLIMIT_STACK, &limit) == 0;
}();

bool is_ifname(const std::string &name) {
    const auto allowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string_view("._-").find(c) != std::string_view::npos;
    };
    return !name.empty() && name.size() <= 12 && std::all_of(name.begin(), name.end(), allowed);
}

void check(const kx::ap_config &config) {
    fuzz::require(kx::parse_mac(kx::format_mac(config.mac)) == config.mac, "a MAC address is read as it is written");
    fuzz::require(config.vaps.size() <= 255, "at most 255 VAPs");
    std::set<std::string> names;
    for (const kx::vap_config &vap : config.vaps) {
        fuzz::require(is_ifname(vap.ifname), "an interface name has 1 to 12 valid characters");
        fuzz::require(names.insert(vap.ifname).second, "interface names differ");
        fuzz::require(vap.ssid.size() <= 32, "an SSID has at most 32 bytes");
        fuzz::require(vap.captive.size() <= 32, "a portal's text has at most 32 bytes");
        fuzz::require(vap.vlan <= 4094, "a VLAN is at most 4094");
        fuzz::require(vap.vap_attr <= 1, "a VAP is for guests or not");
    }
}

}  // namespace

void fuzz_one(std::span<const uint8_t> bytes) {
    fuzz::require(stack_is_small, "the stack is small");
    const fuzz::memory_file file(bytes);
    try {
        check(kx::load_ap_config(file.path()));
    } catch (const kx::config_error &error) {
        fuzz::require(std::string_view(error.what()).starts_with(file.path() + ":"), "an error names the file");
    }
}
