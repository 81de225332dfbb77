#include "radiod/kernel/generic_netlink.h"

#include <linux/genetlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

#include "radiod/kernel/attribute.h"

namespace radiod {
namespace {

using std::chrono::steady_clock;

constexpr std::size_t datagram_max = 32768;  // the kernel fills no more for one receive (net/netlink/af_netlink.c)

// Waits until `end`. Returns 0 or an errno.
int wait_readable(int fd, steady_clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now());
    if (left.count() <= 0) {
        return ETIMEDOUT;
    }
    pollfd readable{.fd = fd, .events = POLLIN, .revents = 0};
    const int ready = poll(&readable, 1, static_cast<int>(left.count()));
    if (ready < 0) {
        return errno;
    }
    return ready == 0 ? ETIMEDOUT : 0;
}

void read_group(const nlattr &group, generic_family &family) {
    std::string name;
    std::optional<std::uint32_t> id;
    for_each_attribute(group, [&](const nlattr &each) {
        switch (mnl_attr_get_type(&each)) {
            case CTRL_ATTR_MCAST_GRP_NAME:
                name = text_of(each);
                break;
            case CTRL_ATTR_MCAST_GRP_ID:
                id = value_of<std::uint32_t>(each);
                break;
            default:
                break;
        }
    });
    if (id) {
        family.groups[name] = *id;
    }
}

}  // namespace

netlink_socket open_generic_netlink() {
    netlink_socket socket(mnl_socket_open2(NETLINK_GENERIC, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) != 0) {
        throw std::system_error(errno, std::generic_category(), "generic netlink");
    }
    return socket;
}

generic_request::generic_request(std::uint16_t family, std::uint8_t command, std::uint16_t flags,
                                 std::uint32_t sequence) {
    nlmsghdr *head = mnl_nlmsg_put_header(bytes.data());
    head->nlmsg_type = family;
    head->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    head->nlmsg_seq = sequence;
    auto *generic = static_cast<genlmsghdr *>(mnl_nlmsg_put_extra_header(head, sizeof(genlmsghdr)));
    generic->cmd = command;
    generic->version = 1;
}

int exchange(int fd, const nlmsghdr &request, netlink_answer &answer, std::chrono::milliseconds patience) {
    const auto end = steady_clock::now() + patience;
    if (send(fd, &request, request.nlmsg_len, MSG_NOSIGNAL) < 0) {
        return errno;
    }
    alignas(nlmsghdr) std::array<std::uint8_t, datagram_max> datagram;
    while (!answer.is_complete()) {
        if (const int error = wait_readable(fd, end); error != 0 && error != EINTR) {
            return error;
        }
        const ssize_t size = recv(fd, datagram.data(), datagram.size(), MSG_TRUNC);
        if (size < 0 && errno != EAGAIN && errno != EINTR) {
            return errno;
        }
        if (size > static_cast<ssize_t>(datagram.size())) {
            return EMSGSIZE;
        }
        if (size > 0) {
            answer.add(std::span(datagram).first(static_cast<std::size_t>(size)));
        }
    }
    return answer.error();
}

std::optional<generic_family> parse_family(const nlmsghdr &message) {
    generic_family family;
    const bool whole = for_each_attribute(message, sizeof(genlmsghdr), [&](const nlattr &each) {
        if (mnl_attr_get_type(&each) == CTRL_ATTR_FAMILY_ID) {
            family.id = value_of<std::uint16_t>(each).value_or(0);
        }
        if (mnl_attr_get_type(&each) == CTRL_ATTR_MCAST_GROUPS) {
            for_each_attribute(each, [&](const nlattr &group) { read_group(group, family); });
        }
    });
    return whole && family.id != 0 ? std::optional(std::move(family)) : std::nullopt;
}

std::optional<generic_family> find_family(std::string_view name) {
    constexpr std::uint32_t sequence = 1;
    constexpr std::chrono::seconds patience{1};
    const netlink_socket socket = open_generic_netlink();
    generic_request request(GENL_ID_CTRL, CTRL_CMD_GETFAMILY, NLM_F_ACK, sequence);
    mnl_attr_put_strz(&request.head(), CTRL_ATTR_FAMILY_NAME, std::string(name.substr(0, GENL_NAMSIZ - 1)).c_str());
    std::optional<generic_family> found;
    netlink_answer answer(sequence, [&](const nlmsghdr &message) {
        found = parse_family(message);
        return found.has_value();
    });
    const int error = exchange(mnl_socket_get_fd(socket.get()), request.head(), answer, patience);
    if (error == ENOENT) {
        return std::nullopt;
    }
    if (error != 0 || !found) {
        throw std::system_error(error != 0 ? error : EPROTO, std::generic_category(), "generic netlink's families");
    }
    return found;
}

}  // namespace radiod
