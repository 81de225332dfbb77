// Layouts: linux/netfilter/nf_tables.h.
#include "platform/linux/client_paths/segment_limit.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <libnftnl/chain.h>
#include <libnftnl/common.h>
#include <libnftnl/expr.h>
#include <libnftnl/rule.h>
#include <libnftnl/table.h>
#include <linux/if_ether.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <utility>

#include "platform/linux/client_paths/tunnel_device.h"

namespace kx {

namespace {

constexpr char table_name[] = "client_mgr";
constexpr std::uint32_t priority = 0;
constexpr timeval reply_wait{0, 250'000};

// RFC 9293, 3.1: flags, and the value of an option.
constexpr std::uint32_t flags_at = 13, mss_at = 2;
constexpr std::uint8_t syn = 2, mss_option = 2;
constexpr int tcp_header = 20, ipv4_header = 20, ipv6_header = 40;  // bytes, without options

template <typename T, void (*release)(const T *)>
struct releaser {
    void operator()(T *object) const { release(object); }
};
using table_ptr = std::unique_ptr<nftnl_table, releaser<nftnl_table, nftnl_table_free>>;
using chain_ptr = std::unique_ptr<nftnl_chain, releaser<nftnl_chain, nftnl_chain_free>>;
using rule_ptr = std::unique_ptr<nftnl_rule, releaser<nftnl_rule, nftnl_rule_free>>;

// Expressions work on register 1.
class rule_text {
public:
    explicit rule_text(nftnl_rule *rule) : rule_(rule) {}

    rule_text &load(std::uint32_t meta_key) {
        nftnl_expr *made = add("meta");
        nftnl_expr_set_u32(made, NFTNL_EXPR_META_KEY, meta_key);
        nftnl_expr_set_u32(made, NFTNL_EXPR_META_DREG, NFT_REG_1);
        return *this;
    }
    template <typename T>
    rule_text &compare(std::uint32_t how, T value) {
        nftnl_expr *made = add("cmp");
        nftnl_expr_set_u32(made, NFTNL_EXPR_CMP_SREG, NFT_REG_1);
        nftnl_expr_set_u32(made, NFTNL_EXPR_CMP_OP, how);
        nftnl_expr_set(made, NFTNL_EXPR_CMP_DATA, &value, sizeof(value));
        return *this;
    }
    rule_text &load_flags(std::uint8_t mask) {
        nftnl_expr *made = add("payload");
        nftnl_expr_set_u32(made, NFTNL_EXPR_PAYLOAD_BASE, NFT_PAYLOAD_TRANSPORT_HEADER);
        nftnl_expr_set_u32(made, NFTNL_EXPR_PAYLOAD_OFFSET, flags_at);
        nftnl_expr_set_u32(made, NFTNL_EXPR_PAYLOAD_LEN, sizeof(mask));
        nftnl_expr_set_u32(made, NFTNL_EXPR_PAYLOAD_DREG, NFT_REG_1);
        const std::uint8_t inverted = 0;
        made = add("bitwise");
        nftnl_expr_set_u32(made, NFTNL_EXPR_BITWISE_SREG, NFT_REG_1);
        nftnl_expr_set_u32(made, NFTNL_EXPR_BITWISE_DREG, NFT_REG_1);
        nftnl_expr_set_u32(made, NFTNL_EXPR_BITWISE_LEN, sizeof(mask));
        nftnl_expr_set(made, NFTNL_EXPR_BITWISE_MASK, &mask, sizeof(mask));
        nftnl_expr_set(made, NFTNL_EXPR_BITWISE_XOR, &inverted, sizeof(inverted));
        return *this;
    }
    // The kernel never raises it.
    void set_mss(std::uint16_t size) {
        const std::uint16_t value = htons(size);
        nftnl_expr *made = add("immediate");
        nftnl_expr_set_u32(made, NFTNL_EXPR_IMM_DREG, NFT_REG_1);
        nftnl_expr_set(made, NFTNL_EXPR_IMM_DATA, &value, sizeof(value));
        made = add("exthdr");
        nftnl_expr_set_u32(made, NFTNL_EXPR_EXTHDR_SREG, NFT_REG_1);
        nftnl_expr_set_u8(made, NFTNL_EXPR_EXTHDR_TYPE, mss_option);
        nftnl_expr_set_u32(made, NFTNL_EXPR_EXTHDR_OFFSET, mss_at);
        nftnl_expr_set_u32(made, NFTNL_EXPR_EXTHDR_LEN, sizeof(value));
        nftnl_expr_set_u32(made, NFTNL_EXPR_EXTHDR_OP, NFT_EXTHDR_OP_TCPOPT);
    }

private:
    nftnl_expr *add(const char *name) {
        nftnl_expr *made = nftnl_expr_alloc(name);
        nftnl_rule_add_expr(rule_, made);
        return made;
    }

    nftnl_rule *rule_;
};

struct chain_name {
    const char *text;
    std::uint32_t hook;
};
// What comes from clients, and what goes to them.
constexpr std::array<chain_name, 2> chains{
    {{.text = "from_clients", .hook = NF_NETDEV_INGRESS}, {.text = "to_clients", .hook = NF_NETDEV_EGRESS}}};

rule_ptr make_rule(const chain_name &chain, std::uint16_t ethertype, std::uint16_t size) {
    rule_ptr rule(nftnl_rule_alloc());
    nftnl_rule_set_u32(rule.get(), NFTNL_RULE_FAMILY, NFPROTO_NETDEV);
    nftnl_rule_set_str(rule.get(), NFTNL_RULE_TABLE, table_name);
    nftnl_rule_set_str(rule.get(), NFTNL_RULE_CHAIN, chain.text);
    rule_text(rule.get())
        .load(NFT_META_PROTOCOL)
        .compare(NFT_CMP_EQ, htons(ethertype))
        .load(NFT_META_L4PROTO)
        .compare(NFT_CMP_EQ, std::uint8_t{IPPROTO_TCP})
        .load_flags(syn)
        .compare(NFT_CMP_NEQ, std::uint8_t{0})
        .set_mss(size);
    return rule;
}

chain_ptr make_chain(const chain_name &name) {
    chain_ptr chain(nftnl_chain_alloc());
    nftnl_chain_set_str(chain.get(), NFTNL_CHAIN_TABLE, table_name);
    nftnl_chain_set_str(chain.get(), NFTNL_CHAIN_NAME, name.text);
    nftnl_chain_set_str(chain.get(), NFTNL_CHAIN_TYPE, "filter");
    nftnl_chain_set_str(chain.get(), NFTNL_CHAIN_DEV, tunnel_device_name);
    nftnl_chain_set_u32(chain.get(), NFTNL_CHAIN_HOOKNUM, name.hook);
    nftnl_chain_set_u32(chain.get(), NFTNL_CHAIN_PRIO, priority);
    return chain;
}

// One transaction of nf_tables: either all of it is carried out or nothing.
class transaction {
public:
    transaction() : batch_(mnl_nlmsg_batch_start(buffer_.data(), buffer_.size())) {
        nftnl_batch_begin(at(), sequence_++);
        mnl_nlmsg_batch_next(batch_);
    }
    ~transaction() { mnl_nlmsg_batch_stop(batch_); }
    transaction(const transaction &) = delete;
    transaction &operator=(const transaction &) = delete;

    template <typename T, typename builder>
    void add(std::uint16_t type, std::uint16_t flags, T *object, builder build) {
        last_ = nftnl_nlmsg_build_hdr(at(), type, NFPROTO_NETDEV, flags, sequence_++);
        build(last_, object);
        mnl_nlmsg_batch_next(batch_);
    }
    // Returns 0 or an errno.
    int send();

private:
    char *at() { return static_cast<char *>(mnl_nlmsg_batch_current(batch_)); }
    int exchange(mnl_socket *socket);

    std::uint32_t sequence_ = 1;
    alignas(nlmsghdr) std::array<char, 8192> buffer_{};  // more than what limit_segments() adds
    mnl_nlmsg_batch *batch_;
    nlmsghdr *last_ = nullptr;
};

int transaction::send() {
    last_->nlmsg_flags |= NLM_F_ACK;
    nftnl_batch_end(at(), sequence_);
    mnl_nlmsg_batch_next(batch_);
    mnl_socket *socket = mnl_socket_open2(NETLINK_NETFILTER, SOCK_CLOEXEC);
    if (socket == nullptr) {
        return errno;
    }
    const int error = mnl_socket_bind(socket, 0, MNL_SOCKET_AUTOPID) == 0 ? exchange(socket) : errno;
    mnl_socket_close(socket);
    return error;
}

// Only the last message asks for an acknowledgement; a message that fails is answered in any case.
int transaction::exchange(mnl_socket *socket) {
    setsockopt(mnl_socket_get_fd(socket), SOL_SOCKET, SO_RCVTIMEO, &reply_wait, sizeof(reply_wait));
    if (mnl_socket_sendto(socket, mnl_nlmsg_batch_head(batch_), mnl_nlmsg_batch_size(batch_)) < 0) {
        return errno;
    }
    std::array<char, 4096> answer{};
    const ssize_t size = mnl_socket_recvfrom(socket, answer.data(), answer.size());
    if (size < 0) {
        return errno == EAGAIN ? ETIMEDOUT : errno;
    }
    const int result =
        mnl_cb_run(answer.data(), static_cast<std::size_t>(size), 0, mnl_socket_get_portid(socket), nullptr, nullptr);
    return result < 0 ? errno : 0;
}

}  // namespace

int limit_segments(int mtu) {
    const table_ptr table(nftnl_table_alloc());
    nftnl_table_set_str(table.get(), NFTNL_TABLE_NAME, table_name);
    transaction all;
    // A former process may have left the table.
    all.add(NFT_MSG_NEWTABLE, NLM_F_CREATE, table.get(), nftnl_table_nlmsg_build_payload);
    all.add(NFT_MSG_DELTABLE, 0, table.get(), nftnl_table_nlmsg_build_payload);
    all.add(NFT_MSG_NEWTABLE, NLM_F_CREATE, table.get(), nftnl_table_nlmsg_build_payload);
    for (const chain_name &name : chains) {
        all.add(NFT_MSG_NEWCHAIN, NLM_F_CREATE, make_chain(name).get(), nftnl_chain_nlmsg_build_payload);
        for (const auto &[ethertype, header] : {std::pair{ETH_P_IP, ipv4_header}, {ETH_P_IPV6, ipv6_header}}) {
            const auto size = static_cast<std::uint16_t>(mtu - header - tcp_header);
            const rule_ptr rule = make_rule(name, static_cast<std::uint16_t>(ethertype), size);
            all.add(NFT_MSG_NEWRULE, NLM_F_CREATE | NLM_F_APPEND, rule.get(), nftnl_rule_nlmsg_build_payload);
        }
    }
    return all.send();
}

}  // namespace kx
