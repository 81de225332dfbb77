#include "controller/enrolments.h"

#include <algorithm>

#include "controller/site.h"

namespace controller {

namespace {

constexpr std::size_t name_max = 32;

bool is_letter_or_digit(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

certificate_facts read_certificate(const std::string &pem, const mac_address &ap) {
    auto found = read_certificate_facts(pem);
    if (found.size() != 1) {
        throw refused("expected one certificate");
    }
    if (found.front().mac != ap) {
        throw refused("the certificate is not one of " + kx::format_mac(ap));
    }
    return std::move(found.front());
}

}  // namespace

bool is_ap_name(std::string_view text) {
    const auto permitted = [](char c) { return is_letter_or_digit(c) || c == '.' || c == '_' || c == '-'; };
    return !text.empty() && text.size() <= name_max && is_letter_or_digit(text.front()) &&
           std::ranges::all_of(text, permitted) && !kx::parse_mac(std::string(text));
}

void enrolments::load(const std::vector<enrolled_ap> &stored) {
    table_.clear();
    for (const enrolled_ap &each : stored) {
        table_[each.mac] = {.name = each.name,
                            .site = each.site,
                            .revoked = each.revoked,
                            .certificates = read_certificate_facts(each.certificate)};
    }
}

const enrolment *enrolments::find(const mac_address &ap) const {
    const auto found = table_.find(ap);
    return found == table_.end() ? nullptr : &found->second;
}

const enrolments::table::value_type &enrolments::get(const std::string &name_or_mac) const {
    auto found = std::ranges::find(table_, name_or_mac, [](const auto &each) { return each.second.name; });
    if (const auto mac = kx::parse_mac(name_or_mac); mac && found == table_.end()) {
        found = table_.find(*mac);
    }
    if (found == table_.end()) {
        throw refused("no access point with this name or MAC address is enrolled");
    }
    return *found;
}

std::string enrolments::refusal(const mac_address &ap, const std::string &fingerprint, bool only_enrolled) const {
    const enrolment *const known = find(ap);
    if (known != nullptr && known->revoked) {
        return "the access point's enrolment is revoked";
    }
    if (!only_enrolled) {
        return "";
    }
    if (known == nullptr) {
        return "the access point is not enrolled";
    }
    const bool is_its_own = std::ranges::count(known->certificates, fingerprint, &certificate_facts::fingerprint) > 0;
    return is_its_own ? "" : "the certificate is not the one that the access point is enrolled with";
}

change enrolments::add(const mac_address &ap, const std::string &name, const std::string &site,
                       const std::string &certificate) {
    if (!is_ap_name(name) || (!site.empty() && !is_ap_name(site))) {
        throw refused("a name has 1 to 32 letters, digits, '.', '_' and '-', and begins with a letter or digit");
    }
    if (table_.contains(ap)) {
        throw refused(kx::format_mac(ap) + " is enrolled already");
    }
    if (std::ranges::count(table_, name, [](const auto &each) { return each.second.name; }) > 0) {
        throw refused("another access point has this name");
    }
    if (table_.size() >= aps_max) {
        throw refused("there are " + std::to_string(aps_max) + " access points already");
    }
    table_[ap] = {.name = name, .site = site, .revoked = false, .certificates = {read_certificate(certificate, ap)}};
    return stored(ap);
}

change enrolments::renew(const std::string &name_or_mac, const std::string &certificate) {
    const mac_address ap = get(name_or_mac).first;
    enrolment &known = table_.at(ap);
    if (known.revoked) {
        throw refused("the access point's enrolment is revoked; remove it, and add the access point again");
    }
    certificate_facts added = read_certificate(certificate, ap);
    // The one that the access point was last given may never have reached it; the one before it is in use then.
    if (known.certificates.size() > 1) {
        known.certificates.erase(known.certificates.begin());
    }
    known.certificates.insert(known.certificates.begin(), std::move(added));
    return stored(ap);
}

change enrolments::revoke(const std::string &name_or_mac) {
    const mac_address ap = get(name_or_mac).first;
    table_.at(ap).revoked = true;
    return stored(ap);
}

change enrolments::remove(const std::string &name_or_mac) {
    const mac_address ap = get(name_or_mac).first;
    table_.erase(ap);
    return erased_ap{ap};
}

std::optional<change> enrolments::came(const mac_address &ap, const std::string &fingerprint) {
    const auto found = table_.find(ap);
    if (found == table_.end()) {
        return std::nullopt;
    }
    std::vector<certificate_facts> &of = found->second.certificates;
    if (of.size() < 2 || of.front().fingerprint != fingerprint) {
        return std::nullopt;
    }
    of.resize(1);
    return stored(ap);
}

change enrolments::stored(const mac_address &ap) const {
    const enrolment &of = table_.at(ap);
    std::string certificates;
    for (const certificate_facts &each : of.certificates) {
        certificates += each.pem;
    }
    return enrolled_ap{ap, of.name, certificates, of.site, of.revoked};
}

}  // namespace controller
