#include "apctl/log_command.h"

#include <array>
#include <cctype>
#include <cstdio>

#include "apctl/ending.h"
#include "apctl/log_file.h"
#include "apctl/log_level.h"
#include "apctl/texts.h"
#include "common/hex.h"
#include "common/paths.h"

namespace apctl {

namespace {

constexpr std::chrono::milliseconds look_again{50};

// Sets the daemon's level for its lifetime.
class temporary_level {
public:
    explicit temporary_level(int level) : before_(ask_log_level()) { set_log_level(level); }
    ~temporary_level() {
        try {
            set_log_level(before_);
        } catch (const std::exception &) {  // the daemon has gone, and its level with it
        }
    }
    temporary_level(const temporary_level &) = delete;
    temporary_level &operator=(const temporary_level &) = delete;

private:
    int before_;
};

// Of a line break only the break itself is left.
std::string visible(std::string_view text) {
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<std::uint8_t>(c);
        shown += (byte >= 0x20 && byte < 0x7f) || c == '\n' ? std::string(1, c) : "\\x" + kx::format_hex({&byte, 1});
    }
    return shown;
}

bool is_about(const log_entry &entry, const std::optional<mac_address> &client) {
    if (!client) {
        return true;
    }
    std::string text = entry.text;
    for (char &c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text.find(kx::format_mac(*client)) != std::string::npos;
}

void print(const std::vector<log_entry> &entries, const log_options &wanted, output &to) {
    for (const log_entry &each : entries) {
        if (!is_about(each, wanted.client)) {
            continue;
        }
        std::array<char, 8> fraction{};
        std::snprintf(fraction.data(), fraction.size(), ".%03d", each.time.milliseconds % 1000);
        std::string utc = utc_time(each.time.seconds);
        utc.insert(utc.size() - 1, fraction.data());
        to.row({{"time", utc}, {"text", each.text}},
               local_time(each.time.seconds) + fraction.data() + ' ' + visible(each.text));
    }
}

}  // namespace

void show_log(const log_options &wanted, output &to) {
    log_file log(kx::place("/log/client_mgr.log"));
    print(log.read_all(), wanted, to);
    if (!wanted.follow) {
        return;
    }
    catch_ending_signals();
    const std::optional<temporary_level> level =
        wanted.level ? std::make_optional<temporary_level>(*wanted.level) : std::nullopt;
    while (!has_ended() && to.is_taken()) {
        print(log.read_more(), wanted, to);
        pause_for(look_again);
    }
}

}  // namespace apctl
