// What operators change: guests' approvals, clients, access lists, enrolments.
#include "controller/api/api.h"

namespace controller::api {

namespace {

std::uint32_t read_index(const std::string &text) {
    return static_cast<std::uint32_t>(read_number("the index", text, 0, UINT32_MAX));
}

verdict read_verdict(const request &from) {
    const std::string text = read_text(read_object(from, {"verdict"}), "verdict", 8);
    if (text != "allow" && text != "deny") {
        throw refusal(400, R"(expected "verdict" as "allow" or "deny")");
    }
    return text == "allow" ? verdict::allow : verdict::deny;
}

const char *name_of(verdict decision) { return decision == verdict::allow ? "allow" : "deny"; }

}  // namespace

void api::add_guest_routes() {
    const auto approve = [this](const call &by, const reply &answer) {
        const mac_address mac = read_mac(by.values[0]);
        carry_out(by, {"approve", kx::format_mac(mac)}, answer,
                  [this, mac] { parts_.with.send(managed_site().approve(mac)); });
    };
    // An approval ends with the guest's stay.
    const auto revoke = [this](const call &by, const reply &answer) {
        const mac_address mac = read_mac(by.values[0]);
        carry_out(by, {"revoke", kx::format_mac(mac)}, answer, [this, mac] {
            const client *guest = managed_site().tables().find_client(mac);
            if (guest == nullptr || guest->guest != guest_state::approved) {
                throw refused(kx::format_mac(mac) + " is not an approved guest");
            }
            parts_.with.send(managed_site().remove(mac));
        });
    };
    const auto remove = [this](const call &by, const reply &answer) {
        const mac_address mac = read_mac(by.values[0]);
        carry_out(by, {"remove", kx::format_mac(mac)}, answer,
                  [this, mac] { parts_.with.send(managed_site().remove(mac)); });
    };
    router_.add({
        {method::put, "/api/v1/guests/{mac}/approval", role::operator_, approve},
        {method::del, "/api/v1/guests/{mac}/approval", role::operator_, revoke},
        {method::del, "/api/v1/clients/{mac}", role::operator_, remove},
    });
}

void api::add_acl_routes() {
    const auto set = [this](const call &by, const reply &answer) {
        const std::uint32_t index = read_index(by.values[0]);
        const mac_address mac = read_mac(by.values[1]);
        const verdict decision = read_verdict(by.what);
        const std::string subject = by.values[0] + ' ' + kx::format_mac(mac) + ' ' + name_of(decision);
        carry_out(by, {"acl-set", subject}, answer, [=, this] { managed_site().set_verdict(index, mac, decision); });
    };
    const auto remove = [this](const call &by, const reply &answer) {
        const std::uint32_t index = read_index(by.values[0]);
        const mac_address mac = read_mac(by.values[1]);
        carry_out(by, {"acl-remove", by.values[0] + ' ' + kx::format_mac(mac)}, answer,
                  [=, this] { managed_site().remove_verdict(index, mac); });
    };
    const auto set_default = [this](const call &by, const reply &answer) {
        const std::uint32_t index = read_index(by.values[0]);
        const verdict decision = read_verdict(by.what);
        carry_out(by, {"acl-default", by.values[0] + ' ' + name_of(decision)}, answer,
                  [=, this] { managed_site().set_default_verdict(index, decision); });
    };
    router_.add({
        {method::put, "/api/v1/acl/{index}/clients/{mac}", role::operator_, set},
        {method::del, "/api/v1/acl/{index}/clients/{mac}", role::operator_, remove},
        {method::put, "/api/v1/acl/{index}/default", role::operator_, set_default},
    });
}

void api::add_enrolment_routes() {
    constexpr std::size_t certificate_max = 8192;
    // Of the authority, made where its key is.
    const auto enrol = [this](const call &by, const reply &answer) {
        const mac_address mac = read_mac(by.values[0]);
        const nlohmann::json given = read_object(by.what, {"name", "certificate"});
        const std::string name = read_text(given, "name", 32);
        const std::string certificate = read_text(given, "certificate", certificate_max);
        carry_out(by, {"ap-add", kx::format_mac(mac)}, answer,
                  [=, this] { parts_.with.enrol(mac, name, "", certificate); });
    };
    const auto remove = [this](const call &by, const reply &answer) {
        const std::string ap = kx::format_mac(read_mac(by.values[0]));
        carry_out(by, {"ap-remove", ap}, answer, [=, this] { parts_.with.remove_enrolment(ap); });
    };
    const auto renew = [this](const call &by, const reply &answer) {
        const std::string ap = kx::format_mac(read_mac(by.values[0]));
        const std::string certificate =
            read_text(read_object(by.what, {"certificate"}), "certificate", certificate_max);
        carry_out(by, {"ap-renew", ap}, answer, [=, this] { parts_.with.renew_enrolment(ap, certificate); });
    };
    const auto revoke = [this](const call &by, const reply &answer) {
        const std::string ap = kx::format_mac(read_mac(by.values[0]));
        carry_out(by, {"ap-revoke", ap}, answer, [=, this] { parts_.with.revoke_enrolment(ap); });
    };
    router_.add({
        {method::put, "/api/v1/enrolments/{mac}", role::admin, enrol},
        {method::del, "/api/v1/enrolments/{mac}", role::admin, remove},
        {method::put, "/api/v1/enrolments/{mac}/certificate", role::admin, renew},
        {method::put, "/api/v1/enrolments/{mac}/revocation", role::admin, revoke},
    });
}

}  // namespace controller::api
