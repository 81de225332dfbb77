// Controller messages: decoded into records and encoded from them.
//
//   offset  width  field                            offset  width  field
//   0       1      version: 1                       0       1      record type
//   1       1      header length: 14                1       1      record header length: 4
//   2       1      message type: 0                  2       2      record length, header included
//   3       2      number of records                4              body
//   5       1      zero
//   6       2      total length
//   8       6      MAC address of the access point
#ifndef CONTROLLER_MESSAGE_H
#define CONTROLLER_MESSAGE_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "common/mac_address.h"
#include "controller/layouts.h"
#include "controller/store/values.h"

namespace controller {

// Bytes with their layout. A key that the layout lacks is a programming error and throws std::logic_error.
class values {
public:
    // All zero.
    explicit values(std::span<const field> layout);
    values(std::span<const field> layout, std::span<const std::uint8_t> content);

    bool has(std::string_view key) const;
    mac_address mac(std::string_view key) const;
    std::uint32_t number(std::string_view key) const;  // also of an IPv4 address: 10.0.0.1 is 0x0a000001
    std::span<const std::uint8_t> raw(std::string_view key) const;
    std::span<const std::uint8_t> raw(const field &at) const;

    values &set(std::string_view key, const mac_address &value);
    values &set(std::string_view key, std::uint32_t value);
    values &set(std::string_view key, std::span<const std::uint8_t> value);  // no longer than the field

    std::span<const field> layout() const { return layout_; }
    const bytes &content() const { return content_; }

private:
    const field &at(std::string_view key) const;

    std::span<const field> layout_;
    bytes content_;
};

struct record {
    const record_layout *layout;
    values body;
    std::vector<values> entries;

    // A record of the given type, all zero and without entries.
    explicit record(record_type type);
    record(const record_layout &of, values with) : layout(&of), body(std::move(with)) {}

    record_type type() const { return layout->type; }
    values &add_entry();
};

// An error at `offset` of the message.
struct malformation {
    std::size_t offset;
    std::optional<std::uint8_t> type;  // of the malformed record, when the error is in one
    std::string text;
};

using item = std::variant<record, malformation>;

struct message {
    std::optional<mac_address> ap;  // none when the header is malformed
    std::size_t length = 0;
    std::vector<item> items;  // in the message's order
};

// Decodes a message that was sent in the direction `sent`. After a malformed record decoding continues with the next
// one, as long as its start can be found.
message decode(std::span<const std::uint8_t> content, direction sent);

// One message with the given records. Throws std::length_error when they exceed message_size_max.
bytes encode(const mac_address &ap, std::span<const record> records);
bytes encode(const mac_address &ap, const record &one);

}  // namespace controller

#endif
