#include "apd/controller_message.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "wire/ctrlr_messages.h"

namespace apd {

namespace {

constexpr std::size_t any_number = std::numeric_limits<std::size_t>::max();

struct record_rule {
    std::uint8_t type;
    std::size_t body_size;   // at least
    std::size_t entry_size;  // of a list, whose body begins with a be32 of their number; 0: no list
    std::size_t most;        // records in one message
};

// A guest's authorisation runs up to three shell commands; a request for bulk information reads every VAP twice.
constexpr std::array rules{
    record_rule{CLIENT_MGR_CLIENT_MOVE_NOTIFY, sizeof(move_notify_body), 0, any_number},
    record_rule{ROAMING_MGR_CLIENT_BULK_INFO, sizeof(be32), sizeof(client_entry), any_number},
    record_rule{CLIENT_MGR_PMK_FETCH_SUCCESS, sizeof(be32), sizeof(client_entry), any_number},
    record_rule{CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, sizeof(be32), sizeof(client_entry), any_number},
    record_rule{CLIENT_MGR_REQ_BULK_INFO, 0, 0, 1},
    record_rule{CLIENT_MGR_REMOVE_CLIENT_BULK_INFO, sizeof(be32), sizeof(client_entry), any_number},
    record_rule{CLIENT_MGR_CLIENT_GUEST_AUTH, sizeof(guest_auth_body), 0, 16},
    record_rule{CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC, sizeof(be32), sizeof(client_entry), any_number},
    record_rule{CLIENT_MGR_CLIENT_ACL_AUTH_RESP, sizeof(acl_auth_body), 0, any_number},
};

bool fits(const record_rule &rule, std::span<const std::uint8_t> body) {
    if (body.size() < rule.body_size) {
        return false;
    }
    if (rule.entry_size == 0) {
        return true;
    }
    be32 count{};
    std::memcpy(&count, body.data(), sizeof(count));
    return count <= (body.size() - sizeof(count)) / rule.entry_size;
}

// Counts the records of one message.
class record_check {
public:
    // `record` includes its header.
    const char *find_fault(std::span<const std::uint8_t> record, const ctrlr_rec_hdr &header) {
        const auto rule = std::ranges::find(rules, header.rec_type, &record_rule::type);
        if (rule == rules.end()) {
            return nullptr;
        }
        if (!fits(*rule, record.subspan(header.rec_hdr_len))) {
            return "a record is shorter than its body";
        }
        std::size_t &count = counts_[static_cast<std::size_t>(rule - rules.begin())];
        return ++count > rule->most ? "too many records of one type" : nullptr;
    }

private:
    std::array<std::size_t, rules.size()> counts_{};
};

}  // namespace

const char *find_fault(std::span<const std::uint8_t> message) {
    ctrlr_msg_hdr header{};
    std::copy_n(message.begin(), std::min(message.size(), sizeof(header)), reinterpret_cast<std::uint8_t *>(&header));
    if (header.version != 1 || header.msg_type != 0) {
        return nullptr;
    }
    record_check check;
    std::size_t offset = header.hdr_len;
    for (unsigned left = header.recs; left > 0; left--) {
        ctrlr_rec_hdr record{};
        if (message.size() < offset + sizeof(record)) {
            return "it has fewer records than its header says";
        }
        std::memcpy(&record, &message[offset], sizeof(record));
        const std::size_t length = record.rec_len;
        if (length < std::max<std::size_t>(sizeof(record), record.rec_hdr_len)) {
            return "a record is shorter than its header";
        }
        if (length > message.size() - offset) {
            return "a record is longer than the message";
        }
        if (const char *fault = check.find_fault(message.subspan(offset, length), record); fault != nullptr) {
            return fault;
        }
        offset += length;
    }
    return nullptr;
}

}  // namespace apd
