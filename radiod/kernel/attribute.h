// Netlink attributes, read within their bounds.
#ifndef RADIOD_KERNEL_ATTRIBUTE_H
#define RADIOD_KERNEL_ATTRIBUTE_H

#include <libmnl/libmnl.h>

#include <cstring>
#include <optional>
#include <string>

namespace radiod {

template <typename F>
int call_with_attribute(const nlattr *attribute, void *function) {
    (*static_cast<F *>(function))(*attribute);
    return MNL_CB_OK;
}

// Calls `each` for the attributes behind a header of `header` bytes. False when the message is shorter than that.
template <typename F>
bool for_each_attribute(const nlmsghdr &message, unsigned header, F each) {
    return mnl_nlmsg_get_payload_len(&message) >= header &&
           mnl_attr_parse(&message, header, call_with_attribute<F>, &each) == MNL_CB_OK;
}

template <typename F>
void for_each_attribute(const nlattr &nest, F each) {
    mnl_attr_parse_nested(&nest, call_with_attribute<F>, &each);
}

// The value in the host's order; none when the attribute is too short. A longer one has been extended by a newer
// kernel.
template <typename T>
std::optional<T> value_of(const nlattr &attribute) {
    T value{};
    if (mnl_attr_get_payload_len(&attribute) < sizeof value) {
        return std::nullopt;
    }
    std::memcpy(&value, mnl_attr_get_payload(&attribute), sizeof value);
    return value;
}

inline std::string text_of(const nlattr &attribute) {
    const char *text = static_cast<const char *>(mnl_attr_get_payload(&attribute));
    return {text, strnlen(text, mnl_attr_get_payload_len(&attribute))};
}

}  // namespace radiod

#endif
