#include "radiod/kernel/netlink_answer.h"

#include <libmnl/libmnl.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace radiod {
namespace {

// The errno of NLMSG_ERROR and NLMSG_DONE, both of which begin with a negative one. NLMSG_DONE may have none.
int error_of(const nlmsghdr &message) {
    std::int32_t negative = 0;
    if (mnl_nlmsg_get_payload_len(&message) < sizeof negative) {
        return message.nlmsg_type == NLMSG_DONE ? 0 : EPROTO;
    }
    std::memcpy(&negative, mnl_nlmsg_get_payload(&message), sizeof negative);
    constexpr std::int32_t errno_max = 4095;  // linux/err.h
    return negative <= 0 && negative >= -errno_max ? -negative : EPROTO;
}

}  // namespace

bool for_each_message(std::span<const std::uint8_t> datagram, const std::function<bool(const nlmsghdr &)> &each) {
    // The kernel pads every message. Without the last padding, the last attribute would end behind the datagram.
    if (datagram.size() % NLMSG_ALIGNTO != 0) {
        return false;
    }
    int left = static_cast<int>(datagram.size());
    const auto *message = reinterpret_cast<const nlmsghdr *>(datagram.data());
    while (left > 0) {
        // mnl_nlmsg_ok takes a length of 2 GiB and more for a negative one.
        if (!mnl_nlmsg_ok(message, left) || message->nlmsg_len > datagram.size() || !each(*message)) {
            return false;
        }
        message = mnl_nlmsg_next(message, &left);
    }
    return true;
}

void netlink_answer::add(std::span<const std::uint8_t> datagram) {
    if (!for_each_message(datagram, [this](const nlmsghdr &message) { return take(message); })) {
        finish(EPROTO);
    }
}

bool netlink_answer::take(const nlmsghdr &message) {
    if (message.nlmsg_seq != sequence_ || complete_) {
        return true;
    }
    interrupted_ = interrupted_ || (message.nlmsg_flags & NLM_F_DUMP_INTR) != 0;
    switch (message.nlmsg_type) {
        case NLMSG_NOOP:
            return true;
        case NLMSG_OVERRUN:
            finish(ENOBUFS);
            return true;
        case NLMSG_ERROR:
        case NLMSG_DONE:
            finish(error_of(message));
            return true;
        default:
            return read_(message);
    }
}

void netlink_answer::finish(int error) {
    if (!complete_) {
        complete_ = true;
        error_ = error == 0 && interrupted_ ? EINTR : error;
    }
}

}  // namespace radiod
