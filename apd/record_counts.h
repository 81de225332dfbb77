// How many records of each type the client manager has sent to the controller since the start.
#ifndef APD_RECORD_COUNTS_H
#define APD_RECORD_COUNTS_H

#include <array>
#include <cstdint>
#include <span>

#include "wire/ctrlr_messages.h"

namespace apd {

class record_counts {
public:
    struct count {
        std::uint8_t type;
        const char *name;
        std::uint64_t number = 0;
    };

    // Counts the records of a whole message, up to one that is cut off.
    void add(std::span<const std::uint8_t> message);
    const auto &list() const { return counts_; }

private:
    void add_record(std::uint8_t type);

    std::array<count, 13> counts_{{
        {CLIENT_MGR_BULK_INFO, "bulk_info"},
        {CLIENT_MGR_BULK_VAP_CONFIG, "bulk_vap_config"},
        {CLIENT_MGR_CLIENT_ASSOC, "client_assoc"},
        {CLIENT_MGR_CLIENT_DISASSOC, "client_disassoc"},
        {CLIENT_MGR_CLIENT_IP, "client_ip"},
        {CLIENT_MGR_FOREIGN_CLIENT_ASSOC, "foreign_client_assoc"},
        {CLIENT_MGR_FOREIGN_CLIENT_DISASSOC, "foreign_client_disassoc"},
        {CLIENT_MGR_PMK_ADD, "pmk_add"},
        {CLIENT_MGR_PMK_FETCH, "pmk_fetch"},
        {CLIENT_MGR_CLIENT_INFO_FETCH, "client_info_fetch"},
        {CLIENT_MGR_CLIENT_GUEST_ASSOC, "client_guest_assoc"},
        {CLIENT_MGR_CLIENT_ACL_AUTH_REQ, "client_acl_auth_req"},
        {0xff, "unknown"},  // every other type
    }};
};

}  // namespace apd

#endif
