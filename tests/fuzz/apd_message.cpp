// apd's check of messages from the controller. Input: the message. A message that passes is walked as the client
// manager walks it, and must cause no more work than its bytes are worth.
#include <algorithm>
#include <array>
#include <cstring>

#include "apd/controller_message.h"
#include "input.h"
#include "require.h"
#include "wire/ctrlr_messages.h"

namespace {

constexpr std::array lists{ROAMING_MGR_CLIENT_BULK_INFO, CLIENT_MGR_PMK_FETCH_SUCCESS,
                           CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, CLIENT_MGR_REMOVE_CLIENT_BULK_INFO,
                           CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC};

// What the client manager does for a message, besides looking at each record once.
struct work {
    std::size_t records = 0, entries = 0, authorisations = 0, bulk_reports = 0;
};

work walk(std::span<const uint8_t> message) {
    work done;
    std::size_t at = message[1];
    fuzz::input counts(message.subspan(3));
    for (unsigned left = counts.word16(); left > 0; left--) {
        fuzz::require(at + sizeof(ctrlr_rec_hdr) <= message.size(), "a record's header is inside the message");
        const uint8_t type = message[at];
        fuzz::input length(message.subspan(at + 2));
        const std::size_t next = at + length.word16();
        fuzz::require(next <= message.size(), "a record is inside the message");
        const std::size_t body = at + message[at + 1];
        if (std::ranges::find(lists, type) != lists.end()) {
            fuzz::input number(message.subspan(body, next - body));
            const std::size_t entries = number.word32();
            fuzz::require(body + sizeof(be32) + entries * sizeof(client_entry) <= next, "a list is inside its record");
            done.entries += entries;
        }
        done.authorisations += type == CLIENT_MGR_CLIENT_GUEST_AUTH ? 1 : 0;
        done.bulk_reports += type == CLIENT_MGR_REQ_BULK_INFO ? 1 : 0;
        done.records++;
        at = next;
    }
    return done;
}

}  // namespace

void fuzz_one(std::span<const uint8_t> bytes) {
    constexpr std::size_t message_max = 16384;
    const auto message = bytes.first(std::min(bytes.size(), message_max));
    if (apd::find_fault(message) != nullptr || message.size() < sizeof(ctrlr_msg_hdr) || message[0] != 1 ||
        message[2] != 0) {
        return;
    }
    const work done = walk(message);
    fuzz::require(done.records <= message.size() / sizeof(ctrlr_rec_hdr), "no record is shorter than its header");
    fuzz::require(done.entries <= message.size() / sizeof(client_entry), "no entry is counted twice");
    fuzz::require(done.authorisations <= 16, "at most 16 guests are let in");
    fuzz::require(done.bulk_reports <= 1, "at most one report is asked for");
}
