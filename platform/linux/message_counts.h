// How many local messages of each kind the daemon has been given since the start.
#ifndef KX_LINUX_MESSAGE_COUNTS_H
#define KX_LINUX_MESSAGE_COUNTS_H

#include <algorithm>
#include <array>
#include <cstdint>

#include "wire/local_messages.h"

namespace kx {

class message_counts {
public:
    struct count {
        std::uint32_t id;
        const char *kind;
        std::uint64_t number = 0;
    };

    void add(std::uint32_t id) {
        std::ranges::find_if(counts_.begin(), counts_.end() - 1, [id](const count &each) {
            return each.id == id;
        })->number++;
        total_++;
    }
    const auto &list() const { return counts_; }
    std::uint32_t total() const { return total_; }  // modulo 2^32

private:
    std::array<count, 17> counts_{{
        {KX_MSG_ID_SYSMON_HB, "heartbeat_request"},
        {KX_MSG_ID_SYS_READY, "system_ready"},
        {KX_MSG_ID_SYS_INIT, "system_init"},
        {KX_MSG_ID_LOG_CFG_GET, "log_configuration_request"},
        {KX_MSG_ID_LOG_CFG_SET, "log_configuration"},
        {KX_MSG_ID_CLIENT_TBL_DUMP, "table_dump_request"},
        {KX_MSG_ID_VAP_INIT, "vap_init"},
        {KX_MSG_ID_VAP_UPDATE, "vap_update"},
        {KX_MSG_ID_CLIENT_ASSOCIATION, "association"},
        {KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, "foreign_association"},
        {KX_MSG_ID_CLIENT_DISASSOCIATION, "disassociation"},
        {KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, "foreign_disassociation"},
        {KX_MSG_ID_APCOMM_MSG, "controller_channel"},
        {KX_MSG_ID_CLIENT_MGR_PMK_INFO, "pmk_info"},
        {KX_MSG_ID_CLIENT_IP, "client_address"},
        {KX_MSG_ID_MAC_ACL_AUTH, "mac_acl_request"},
        {0, "unknown"},  // every other id
    }};
    std::uint32_t total_ = 0;
};

// Of this process.
inline constinit message_counts messages_rcvd;

}  // namespace kx

#endif
