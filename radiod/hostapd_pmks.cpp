#include "radiod/hostapd_pmks.h"

#include <openssl/rand.h>

#include <charconv>
#include <cstdint>
#include <system_error>
#include <utility>

#include "common/hex.h"
#include "common/program_log.h"
#include "radiod/hostapd/reply.h"

namespace radiod {
namespace {

// The bits of hostapd's key management suites (src/common/defs.h).
unsigned hostapd_suite(akm suite) { return suite == akm::ieee8021x_sha256 ? 1u << 7 : 1u << 0; }

std::string add_command(const mac_address &station, const pmkid &name, const pmk &key, std::chrono::seconds lifetime,
                        akm suite) {
    return "PMKSA_ADD " + kx::format_mac(station) + ' ' + kx::format_hex(name) + ' ' + kx::format_hex(key) + ' ' +
           std::to_string(lifetime.count()) + ' ' + std::to_string(hostapd_suite(suite));
}

// "00-0f-ac-5"
akm akm_of_text(std::string_view text) {
    constexpr std::string_view ieee80211 = "00-0f-ac-";
    if (!text.starts_with(ieee80211)) {
        return akm::other;
    }
    text.remove_prefix(ieee80211.size());
    std::uint8_t type = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), type);
    return error == std::errc() && end == text.data() + text.size() ? akm_of_selector(0x000fac00U | type) : akm::other;
}

}  // namespace

void hostapd_pmks::use_suites(std::string_view key_mgmt) {
    offers_sha1_ = has_word(key_mgmt, "WPA-EAP");
    offers_sha256_ = has_word(key_mgmt, "WPA-EAP-SHA256");
}

akm hostapd_pmks::choose_suite(akm last) const {
    const bool is_offered = last == akm::ieee8021x ? offers_sha1_ : last == akm::ieee8021x_sha256 && offers_sha256_;
    if (is_offered) {
        return last;
    }
    return offers_sha256_ ? akm::ieee8021x_sha256 : akm::ieee8021x;
}

void hostapd_pmks::ask_suite(const mac_address &station, std::function<void(akm)> done) {
    hostapd_.send("STA " + kx::format_mac(station), [done = std::move(done)](std::optional<std::string_view> reply) {
        done(akm_of_text(value_of(reply.value_or(""), "AKMSuiteSelector")));
    });
}

// A PMKSA of hostapd has the interface that the station had when it was made, and puts it there again. A new one
// replaces it; nobody has the key of this one.
void hostapd_pmks::discard(const mac_address &station) {
    pmk nobodys{};
    pmkid name{};
    if (!takes_pmks() || RAND_bytes(nobodys.data(), static_cast<int>(nobodys.size())) != 1 ||
        RAND_bytes(name.data(), static_cast<int>(name.size())) != 1) {
        return;
    }
    keyed_.erase(station);
    hostapd_.send(add_command(station, name, nobodys, std::chrono::seconds(1), choose_suite(akm::other)));
}

void hostapd_pmks::install(const mac_address &bssid, const mac_address &station, const pmk &key, akm suite,
                           std::chrono::seconds lifetime, std::function<void()> done) {
    const auto name = make_pmkid(suite, key, bssid, station);
    if (!name) {
        done();
        return;
    }
    hostapd_.send(add_command(station, *name, key, lifetime, suite),
                  [this, station, done = std::move(done)](std::optional<std::string_view> reply) {
                      if (reply == "OK") {
                          keyed_.insert(station);
                      } else {
                          kx::log_line(ifname_ + ": hostapd did not take a station's PMK");
                      }
                      done();
                  });
}

}  // namespace radiod
