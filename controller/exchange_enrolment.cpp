// Which access points the exchange serves.
#include <utility>

#include "controller/exchange.h"

namespace controller {

// Without a store its end would undo them.
void exchange::require_lasting_enrolments() const {
    if (store_ == nullptr || !store_->status().keeps) {
        throw controller::refused(
            "the controller runs without a store, and would forget this at its end; start it with --store FILE");
    }
}

void exchange::require_accepted(const std::string &certificate) const {
    if (const std::string fault = tunnels_->find_fault(certificate); !fault.empty()) {
        throw controller::refused("the certificate is not one that the controller accepts: " + fault);
    }
}

void exchange::enrol(const mac_address &ap, const std::string &name, const std::string &site,
                     const std::string &certificate) {
    require_lasting_enrolments();
    require_accepted(certificate);
    note(enrolments_.add(ap, name, site, certificate));
    if (site_) {
        site_->name_ap(ap, name);
    }
}

void exchange::renew_enrolment(const std::string &ap, const std::string &certificate) {
    require_lasting_enrolments();
    require_accepted(certificate);
    note(enrolments_.renew(ap, certificate));
}

void exchange::revoke_enrolment(const std::string &ap) {
    require_lasting_enrolments();
    note(enrolments_.revoke(ap));
    tunnels_->recheck();
}

void exchange::remove_enrolment(const std::string &ap) {
    require_lasting_enrolments();
    const mac_address gone = enrolments_.get(ap).first;
    note(enrolments_.remove(ap));
    tunnels_->recheck();
    if (site_ && access_points_.find(gone) == nullptr) {
        send(site_->forget_ap(gone));
    }
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
