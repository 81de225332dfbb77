#include "lab/hostapd_app/pmk_report.h"

#include <nlohmann/json.hpp>

#include "common/key_fingerprint.h"
#include "common/mac_address.h"

namespace hostapd {

namespace {

const char *name_of(outcome result) {
    switch (result) {
        case outcome::installed:
            return "installed";
        case outcome::no_radio:
            return "no_radio";
        case outcome::radio_busy:
            return "radio_busy";
    }
    return "";
}

}  // namespace

std::string to_json(const kx::pmk_answer &what, outcome result) {
    nlohmann::ordered_json object = {{"client", kx::format_mac(what.client)}, {"bssid", kx::format_mac(what.bssid)}};
    if (what.previous_bssid != mac_address{}) {
        object["previous_bssid"] = kx::format_mac(what.previous_bssid);
    }
    object["pmk"] = kx::key_fingerprint(what.pmk);
    object["outcome"] = name_of(result);
    return object.dump();
}

std::string to_text(const kx::pmk_answer &what, outcome result) {
    return kx::format_mac(what.client) + " on " + kx::format_mac(what.bssid) + ": PMK " +
           kx::key_fingerprint(what.pmk) + ", " + name_of(result);
}

std::string error_to_json(const std::string &text) { return nlohmann::ordered_json{{"error", text}}.dump(); }

}  // namespace hostapd
