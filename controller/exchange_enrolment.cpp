// Which access points the exchange serves.
#include <utility>

#include "controller/exchange.h"

namespace controller {

void exchange::enrol(const mac_address &ap, const std::string &name, const std::string &site,
                     const std::string &certificate) {
    note(enrolments_.add(ap, name, site, certificate));
    if (site_) {
        site_->name_ap(ap, name);
    }
}

void exchange::renew_enrolment(const std::string &ap, const std::string &certificate) {
    note(enrolments_.renew(ap, certificate));
}

void exchange::revoke_enrolment(const std::string &ap) {
    note(enrolments_.revoke(ap));
    tunnels_->recheck();
}

void exchange::remove_enrolment(const std::string &ap) {
    note(enrolments_.remove(ap));
    tunnels_->recheck();
}

void exchange::serve_only_enrolled(bool only) {
    only_enrolled_ = only;
    if (tunnels_ != nullptr) {
        tunnels_->recheck();
    }
}

void exchange::note(change one) { own_changes_.push_back(std::move(one)); }

void exchange::load_enrolments(const contents &from) {
    enrolments_.load(from.aps);
    own_changes_.clear();
    for (const auto &[mac, each] : enrolments_.all()) {
        site_->name_ap(mac, each.name);
    }
}

// The name of an enrolled access point is the one that the operator gave it.
void exchange::identify_certificate(const peer &other) {
    if (auto changed = enrolments_.came(other.mac, other.fingerprint)) {
        note(std::move(*changed));
    }
    if (site_) {
        const enrolment *const known = enrolments_.find(other.mac);
        site_->name_ap(other.mac, known != nullptr ? known->name : other.name);
    }
}

}  // namespace controller
