#include "platform/linux/route_netlink.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>

namespace kx {

namespace {

constexpr timeval reply_wait{0, 250'000};

constinit route_netlink the_kernel;
constinit netlink_batch the_batch;

}  // namespace

route_netlink &kernel_netlink() { return the_kernel; }

netlink_batch &kernel_batch() { return the_batch; }

nlmsghdr *route_netlink::make_request(std::uint16_t type, unsigned flags) {
    nlmsghdr *request = mnl_nlmsg_put_header(buffer_.data());
    request->nlmsg_type = type;
    request->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    return request;
}

// Tries once. False, and error_ is set, when there is no netlink.
bool route_netlink::open() {
    if (socket_ != nullptr || error_ != 0) {
        return error_ == 0;
    }
    socket_ = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC);
    if (socket_ == nullptr || mnl_socket_bind(socket_, 0, MNL_SOCKET_AUTOPID) != 0) {
        error_ = errno;
        return false;
    }
    setsockopt(mnl_socket_get_fd(socket_), SOL_SOCKET, SO_RCVTIMEO, &reply_wait, sizeof(reply_wait));
    int on = 1;
    mnl_socket_setsockopt(socket_, NETLINK_CAP_ACK, &on, sizeof(on));
    return true;
}

int route_netlink::call(nlmsghdr *request, mnl_cb_t callback, void *context) {
    if (!open()) {
        return error_;
    }
    request->nlmsg_seq = ++sequence_;
    const bool many = (request->nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP;
    if (mnl_socket_sendto(socket_, request, request->nlmsg_len) < 0) {
        return errno;
    }
    int result = MNL_CB_OK;
    do {
        ssize_t size = mnl_socket_recvfrom(socket_, buffer_.data(), buffer_.size());
        if (size < 0) {
            return errno == EAGAIN ? ETIMEDOUT : errno;
        }
        // Another sequence number belongs to a call that timed out.
        if (reinterpret_cast<const nlmsghdr *>(buffer_.data())->nlmsg_seq != sequence_) {
            result = MNL_CB_OK;
            continue;
        }
        result = mnl_cb_run(buffer_.data(), static_cast<std::size_t>(size), sequence_, mnl_socket_get_portid(socket_),
                            callback, context);
        if (!many) {
            break;
        }
    } while (result > MNL_CB_STOP);
    return result < 0 ? errno : 0;
}

int route_netlink::exchange(std::span<char> requests, std::size_t count, std::span<int> errors) {
    if (!open()) {
        return error_;
    }
    const unsigned first = sequence_ + 1;
    for (std::size_t at = 0; at < requests.size();) {
        auto *request = reinterpret_cast<nlmsghdr *>(&requests[at]);
        request->nlmsg_seq = ++sequence_;
        at += MNL_ALIGN(request->nlmsg_len);
    }
    if (mnl_socket_sendto(socket_, requests.data(), requests.size()) < 0) {
        return errno;
    }
    for (bool all_answered = false; !all_answered;) {
        const ssize_t size = mnl_socket_recvfrom(socket_, buffer_.data(), buffer_.size());
        if (size < 0) {
            return errno == EAGAIN ? ETIMEDOUT : errno;
        }
        const auto *answer = reinterpret_cast<const nlmsghdr *>(buffer_.data());
        int rest = static_cast<int>(size);
        for (; mnl_nlmsg_ok(answer, rest); answer = mnl_nlmsg_next(answer, &rest)) {
            const unsigned index = answer->nlmsg_seq - first;
            if (answer->nlmsg_type == NLMSG_ERROR && index < count) {
                errors[index] = -static_cast<const nlmsgerr *>(mnl_nlmsg_get_payload(answer))->error;
                all_answered = index == count - 1;
            }
        }
    }
    return 0;
}

char *netlink_batch::close_last() {
    return last_ == nullptr ? buffer_.data() : reinterpret_cast<char *>(last_) + MNL_ALIGN(last_->nlmsg_len);
}

nlmsghdr *netlink_batch::add(std::uint16_t type, unsigned flags, std::array<int, 3> tolerated) {
    // The last place is written to again and again once the batch has overflowed.
    overflow_ = overflow_ || count_ == messages_max;
    char *at = overflow_ ? reinterpret_cast<char *>(last_) : close_last();
    count_ += overflow_ ? 0 : 1;
    last_ = mnl_nlmsg_put_header(at);
    last_->nlmsg_type = type;
    last_->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    tolerated_[count_ - 1] = tolerated;
    return last_;
}

int netlink_batch::send() {
    std::array<int, messages_max> errors{};
    const auto size = static_cast<std::size_t>(close_last() - buffer_.data());
    int result = overflow_ ? ENOBUFS : 0;
    if (!overflow_ && count_ > 0) {
        last_->nlmsg_flags |= NLM_F_ACK;
        result = kernel_netlink().exchange({buffer_.data(), size}, count_, errors);
    }
    for (std::size_t i = 0; result == 0 && i < count_; i++) {
        result = std::ranges::find(tolerated_[i], errors[i]) != tolerated_[i].end() ? 0 : errors[i];
    }
    last_ = nullptr;
    count_ = 0;
    overflow_ = false;
    return result;
}

}  // namespace kx
