#include "lab/fleet/traffic.h"

#include <cmath>
#include <cstring>
#include <optional>

#include "wire/ctrlr_messages.h"

namespace fleet {

namespace {

constexpr double growth = 1.02;

std::optional<std::uint8_t> first_type(std::span<const std::uint8_t> message) {
    return message.size() > sizeof(ctrlr_msg_hdr) ? std::optional(message[sizeof(ctrlr_msg_hdr)]) : std::nullopt;
}

// The body of the first record, when it is long enough.
template <typename T>
std::optional<T> body_of(std::span<const std::uint8_t> message) {
    constexpr std::size_t offset = sizeof(ctrlr_msg_hdr) + sizeof(ctrlr_rec_hdr);
    if (message.size() < offset + sizeof(T)) {
        return std::nullopt;
    }
    T body;
    std::memcpy(&body, &message[offset], sizeof(body));
    return body;
}

std::uint16_t record_count(std::span<const std::uint8_t> message) {
    ctrlr_msg_hdr header{};
    std::memcpy(&header, message.data(), std::min(message.size(), sizeof(header)));
    return header.recs;
}

}  // namespace

void latency::add(std::chrono::nanoseconds time) {
    const double us = std::max(1.0, std::chrono::duration<double, std::micro>(time).count());
    const auto bucket = static_cast<std::size_t>(std::ceil(std::log(us) / std::log(growth)));
    buckets_[std::min(bucket, buckets_.size() - 1)]++;
    count_++;
}

double latency::quantile(double share) const {
    const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(count_)));
    std::uint64_t seen = 0;
    for (std::size_t i = 0; i < buckets_.size() && wanted > 0; i++) {
        seen += buckets_[i];
        if (seen >= wanted) {
            return std::pow(growth, static_cast<double>(i));
        }
    }
    return 0;
}

void traffic::sent(std::span<const std::uint8_t> message, clock::time_point now) {
    messages_++;
    const auto type = first_type(message);
    if (!type) {
        return;
    }
    records_sent_ += record_count(message);
    sent_.of_type[*type]++;
    if (*type == CLIENT_MGR_FOREIGN_CLIENT_ASSOC) {
        if (const auto roam = body_of<reassociation>(message); roam && roam->last_bssid != roam->bssid) {
            roams_[roam->client] = now;
        }
    }
}

void traffic::received(std::span<const std::uint8_t> message, clock::time_point now) {
    messages_++;
    const auto type = first_type(message);
    if (!type) {
        return;
    }
    received_.of_type[*type]++;
    if (*type == CLIENT_MGR_CLIENT_MOVE_NOTIFY) {
        const auto notice = body_of<move_notify_body>(message);
        if (const auto roam = notice ? roams_.find(notice->client) : roams_.end(); roam != roams_.end()) {
            move_notices_.add(now - roam->second);
            roams_.erase(roam);
        }
    }
}

nlohmann::ordered_json traffic::to_json() const {
    static const std::map<std::uint8_t, const char *> names = {
        {CLIENT_MGR_BULK_INFO, "bulk_info"},
        {CLIENT_MGR_BULK_VAP_CONFIG, "bulk_vap_config"},
        {CLIENT_MGR_CLIENT_ASSOC, "client_assoc"},
        {CLIENT_MGR_CLIENT_DISASSOC, "client_disassoc"},
        {CLIENT_MGR_CLIENT_IP, "client_ip"},
        {CLIENT_MGR_FOREIGN_CLIENT_ASSOC, "foreign_client_assoc"},
        {CLIENT_MGR_FOREIGN_CLIENT_DISASSOC, "foreign_client_disassoc"},
        {CLIENT_MGR_CLIENT_MOVE_NOTIFY, "client_move_notify"},
        {ROAMING_MGR_CLIENT_BULK_INFO, "client_bulk_info"},
        {CLIENT_MGR_PMK_ADD, "pmk_add"},
        {CLIENT_MGR_PMK_FETCH, "pmk_fetch"},
        {CLIENT_MGR_CLIENT_INFO_FETCH, "client_info_fetch"},
        {CLIENT_MGR_PMK_FETCH_SUCCESS, "pmk_fetch_success"},
        {CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, "client_info_fetch_success"},
        {CLIENT_MGR_REQ_BULK_INFO, "req_bulk_info"},
        {CLIENT_MGR_REMOVE_CLIENT_BULK_INFO, "remove_client_bulk_info"},
        {CLIENT_MGR_CLIENT_GUEST_AUTH, "client_guest_auth"},
        {CLIENT_MGR_CLIENT_GUEST_ASSOC, "client_guest_assoc"},
        {CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC, "client_info_treat_as_assoc"},
        {CLIENT_MGR_CLIENT_ACL_AUTH_REQ, "client_acl_auth_req"},
        {CLIENT_MGR_CLIENT_ACL_AUTH_RESP, "client_acl_auth_resp"},
    };
    nlohmann::ordered_json sent = nlohmann::ordered_json::object();
    nlohmann::ordered_json received = nlohmann::ordered_json::object();
    for (const auto &[type, name] : names) {
        if (sent_.of_type[type] > 0) {
            sent[name] = sent_.of_type[type];
        }
        if (received_.of_type[type] > 0) {
            received[name] = received_.of_type[type];
        }
    }
    return {{"records_sent", records_sent_},
            {"messages_lost", lost_},
            {"sent", sent},
            {"received", received},
            {"move_notice_us",
             {{"count", move_notices_.count()},
              {"p50", std::round(move_notices_.quantile(0.5))},
              {"p99", std::round(move_notices_.quantile(0.99))},
              {"max", std::round(move_notices_.quantile(1))}}}};
}

}  // namespace fleet
