// The kernel's answer to one netlink request.
#ifndef RADIOD_KERNEL_NETLINK_ANSWER_H
#define RADIOD_KERNEL_NETLINK_ANSWER_H

#include <linux/netlink.h>

#include <cstdint>
#include <functional>
#include <span>

namespace radiod {

// Calls `each` for every message of a datagram, whose address is a multiple of 4, until it returns false. Returns false
// when it did, or when the datagram is malformed.
bool for_each_message(std::span<const std::uint8_t> datagram, const std::function<bool(const nlmsghdr &)> &each);

// Takes datagrams until the answer is complete. Messages with another sequence number belong to a request that was
// given up, and are skipped.
class netlink_answer {
public:
    // False when the message is malformed.
    using reader = std::function<bool(const nlmsghdr &)>;

    netlink_answer(std::uint32_t sequence, reader read) : sequence_(sequence), read_(std::move(read)) {}

    void add(std::span<const std::uint8_t> datagram);
    bool is_complete() const { return complete_; }
    // Of a complete answer, 0 or an errno: the kernel's; EPROTO when a message was malformed; EINTR when the listed
    // objects changed meanwhile, so that the list may be wrong (NLM_F_DUMP_INTR).
    int error() const { return error_; }

private:
    bool take(const nlmsghdr &message);
    void finish(int error);

    std::uint32_t sequence_;
    reader read_;
    bool complete_ = false, interrupted_ = false;
    int error_ = 0;
};

}  // namespace radiod

#endif
