// The access points that are enrolled: their names, certificates and sites.
//
// An enrolled access point has one certificate. After a renewal it has two, of which the former is accepted until the
// access point comes with the new one.
#ifndef CONTROLLER_ENROLMENTS_H
#define CONTROLLER_ENROLMENTS_H

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "controller/enrolment/certificate_facts.h"
#include "controller/store/values.h"

namespace controller {

// 1 to 32 letters, digits, '.', '_' and '-', the first of them a letter or digit, and no MAC address.
bool is_ap_name(std::string_view text);

enum class enrolment_state : std::uint8_t {
    enrolled,
    renewed,  // the access point has not come with the new certificate yet
    revoked,
};

struct enrolment {
    std::string name;
    std::string site;
    bool revoked = false;
    std::vector<certificate_facts> certificates;  // one, or the new one and the former

    enrolment_state state() const {
        if (revoked) {
            return enrolment_state::revoked;
        }
        return certificates.size() > 1 ? enrolment_state::renewed : enrolment_state::enrolled;
    }
};

class enrolments {
public:
    static constexpr std::size_t aps_max = 10000;
    using table = std::map<mac_address, enrolment>;

    void load(const std::vector<enrolled_ap> &stored);

    const table &all() const { return table_; }
    const enrolment *find(const mac_address &ap) const;
    // By its name, or by its MAC address as text. Throws `refused` when there is none.
    const table::value_type &get(const std::string &name_or_mac) const;

    // Why an access point with this certificate is not served; empty when it is. Without `only_enrolled` it is refused
    // only when it is revoked.
    std::string refusal(const mac_address &ap, const std::string &fingerprint, bool only_enrolled) const;

    // Each gives the change to store. They throw `refused` when they cannot be carried out.
    change add(const mac_address &ap, const std::string &name, const std::string &site, const std::string &certificate);
    change renew(const std::string &name_or_mac, const std::string &certificate);
    change revoke(const std::string &name_or_mac);
    change remove(const std::string &name_or_mac);
    // An access point has come with this certificate. None when nothing changes.
    std::optional<change> came(const mac_address &ap, const std::string &fingerprint);

private:
    change stored(const mac_address &ap) const;

    table table_;
};

}  // namespace controller

#endif
