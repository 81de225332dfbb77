#include "controller/message.h"

#include <algorithm>
#include <stdexcept>

namespace controller {

namespace {

std::uint32_t load(std::span<const std::uint8_t> from) {
    std::uint32_t value = 0;
    for (std::uint8_t byte : from) {
        value = value << 8 | byte;
    }
    return value;
}

void store(std::span<std::uint8_t> to, std::uint32_t value) {
    for (std::size_t i = to.size(); i > 0; i--) {
        to[i - 1] = static_cast<std::uint8_t>(value);
        value >>= 8;
    }
}

bool all_zero(std::span<const std::uint8_t> content) {
    return std::ranges::all_of(content, [](std::uint8_t byte) { return byte == 0; });
}

const field *find_kind(std::span<const field> fields, field_kind kind) {
    const auto found = std::ranges::find(fields, kind, &field::kind);
    return found == fields.end() ? nullptr : &*found;
}

// The offset of the first byte that must be zero and is not.
std::optional<std::size_t> find_stray(std::span<const field> fields, std::span<const std::uint8_t> content) {
    for (const field &each : fields) {
        if (each.kind == field_kind::zero && !all_zero(content.subspan(each.offset, each.width))) {
            const auto part = content.subspan(each.offset, each.width);
            const auto stray = std::ranges::find_if(part, [](std::uint8_t byte) { return byte != 0; });
            return each.offset + static_cast<std::size_t>(stray - part.begin());
        }
    }
    return std::nullopt;
}

struct malformed {
    std::size_t offset;  // in the record
    std::string text;
};

void check_zeros(std::span<const field> fields, std::span<const std::uint8_t> content, std::size_t offset) {
    if (const auto stray = find_stray(fields, content)) {
        throw malformed{offset + *stray, "a byte that must be zero is " + std::to_string(content[*stray])};
    }
}

void check_length(const record_layout &layout, std::uint64_t actual, std::uint64_t expected) {
    if (actual == expected || (layout.open_ended && actual > expected)) {
        return;
    }
    throw malformed{2, std::string(layout.name) + " with a body of " + std::to_string(actual) + " bytes, expected " +
                           std::to_string(expected)};
}

// The bytes of the data field beyond its length must be zero.
void check_data_padding(const values &body, std::size_t offset) {
    if (!body.has("data")) {
        return;
    }
    const auto data = body.raw("data");
    const std::size_t used = std::min<std::size_t>(body.number("data_length"), data.size());
    if (!all_zero(data.subspan(used))) {
        throw malformed{offset + body.content().size() - data.size() + used, "data past its own length"};
    }
}

record decode_record(const record_layout &layout, std::span<const std::uint8_t> whole, std::size_t header) {
    const auto content = whole.subspan(header);
    const std::size_t fixed = size_of(layout.body);
    const std::size_t each = size_of(layout.entry);
    const field *count = find_kind(layout.body, field_kind::count);
    if (content.size() < fixed) {
        check_length(layout, content.size(), fixed);
    }
    const std::uint64_t entries = count == nullptr ? 0 : load(content.subspan(count->offset, count->width));
    check_length(layout, content.size(), fixed + entries * each);
    check_zeros(layout.body, content, header);
    record decoded(layout, values(layout.body, content.first(fixed)));
    check_data_padding(decoded.body, header);
    for (std::size_t at = fixed; at < fixed + entries * each; at += each) {
        check_zeros(layout.entry, content.subspan(at, each), header + at);
        decoded.entries.emplace_back(layout.entry, content.subspan(at, each));
    }
    return decoded;
}

// Decodes one record; `whole` is all its bytes.
item decode_item(std::span<const std::uint8_t> whole, std::size_t offset, direction sent) {
    const std::uint8_t type = whole[0];
    const record_layout *layout = find_layout(type);
    if (layout == nullptr) {
        return malformation{offset, type, "unknown record type " + std::to_string(type)};
    }
    if (layout->sent != sent) {
        return malformation{offset, type, std::string(layout->name) + " is sent in the other direction"};
    }
    try {
        return decode_record(*layout, whole, whole[1]);
    } catch (const malformed &why) {
        return malformation{offset + why.offset, type, why.text};
    }
}

std::optional<malformation> check_header(std::span<const std::uint8_t> content) {
    const auto wrong = [](std::size_t offset, std::string text) {
        return malformation{offset, std::nullopt, std::move(text)};
    };
    if (content.size() < message_header_size) {
        return wrong(content.size(),
                     "message of " + std::to_string(content.size()) + " bytes, shorter than its header");
    }
    if (content[0] != 1) {
        return wrong(0, "message version " + std::to_string(content[0]) + ", expected 1");
    }
    if (content[1] < message_header_size || content[1] > content.size()) {
        return wrong(1, "message header length " + std::to_string(content[1]));
    }
    if (content[2] != 0) {
        return wrong(2, "message type " + std::to_string(content[2]) + ", expected 0");
    }
    if (content[5] != 0) {
        return wrong(5, "a byte that must be zero is " + std::to_string(content[5]));
    }
    if (load(content.subspan(6, 2)) != content.size()) {
        return wrong(6, "total length " + std::to_string(load(content.subspan(6, 2))) + " in a message of " +
                            std::to_string(content.size()) + " bytes");
    }
    return std::nullopt;
}

// The error that hides the end of the record at the start of `rest`; none when the record's length is usable.
std::optional<malformation> check_record_header(std::span<const std::uint8_t> rest, std::size_t offset) {
    if (rest.size() < record_header_size) {
        return malformation{offset, std::nullopt,
                            "record cut after " + std::to_string(rest.size()) + " bytes of its header"};
    }
    const std::size_t length = load(rest.subspan(2, 2));
    if (rest[1] < record_header_size || rest[1] > length) {
        return malformation{
            offset + 1, rest[0],
            "record header length " + std::to_string(rest[1]) + " in a record of " + std::to_string(length) + " bytes"};
    }
    if (length > rest.size()) {
        return malformation{offset + 2, rest[0],
                            "record length " + std::to_string(length) + " with " + std::to_string(rest.size()) +
                                " bytes left in the message"};
    }
    return std::nullopt;
}

void append(bytes &to, std::span<const std::uint8_t> more) { to.insert(to.end(), more.begin(), more.end()); }

void append_record(bytes &to, const record &one) {
    values body = one.body;
    if (const field *count = find_kind(one.layout->body, field_kind::count)) {
        bytes number(count->width);
        store(number, static_cast<std::uint32_t>(one.entries.size()));
        bytes content = body.content();
        std::ranges::copy(number, content.begin() + count->offset);
        body = values(body.layout(), content);
    }
    const std::size_t length =
        record_header_size + body.content().size() + one.entries.size() * size_of(one.layout->entry);
    if (to.size() + length > message_size_max) {
        throw std::length_error("the records exceed one controller message");
    }
    std::uint8_t header[record_header_size] = {static_cast<std::uint8_t>(one.type()), record_header_size};
    store(std::span(header).subspan(2), static_cast<std::uint32_t>(length));
    append(to, header);
    append(to, body.content());
    for (const values &entry : one.entries) {
        append(to, entry.content());
    }
}

}  // namespace

values::values(std::span<const field> layout) : layout_(layout), content_(size_of(layout)) {}

values::values(std::span<const field> layout, std::span<const std::uint8_t> content)
    : layout_(layout), content_(content.begin(), content.end()) {}

bool values::has(std::string_view key) const {
    return std::ranges::any_of(layout_, [key](const field &each) { return each.key != nullptr && each.key == key; });
}

const field &values::at(std::string_view key) const {
    for (const field &each : layout_) {
        if (each.key != nullptr && each.key == key) {
            return each;
        }
    }
    throw std::logic_error("no field \"" + std::string(key) + "\"");
}

mac_address values::mac(std::string_view key) const {
    mac_address value{};
    std::ranges::copy(raw(key), value.begin());
    return value;
}

std::uint32_t values::number(std::string_view key) const { return load(raw(key)); }

std::span<const std::uint8_t> values::raw(std::string_view key) const { return raw(at(key)); }

std::span<const std::uint8_t> values::raw(const field &at) const {
    return std::span(content_).subspan(at.offset, at.width);
}

values &values::set(std::string_view key, const mac_address &value) {
    return set(key, std::span<const std::uint8_t>(value));
}

values &values::set(std::string_view key, std::uint32_t value) {
    const field &to = at(key);
    store(std::span(content_).subspan(to.offset, to.width), value);
    return *this;
}

values &values::set(std::string_view key, std::span<const std::uint8_t> value) {
    const field &to = at(key);
    if (value.size() > to.width) {
        throw std::logic_error("value too long for \"" + std::string(key) + "\"");
    }
    std::ranges::copy(value, content_.begin() + to.offset);
    return *this;
}

record::record(record_type type) : layout(&layout_of(type)), body(layout->body) {}

values &record::add_entry() { return entries.emplace_back(layout->entry); }

message decode(std::span<const std::uint8_t> content, direction sent) {
    message decoded;
    decoded.length = content.size();
    if (auto wrong = check_header(content)) {
        decoded.items.emplace_back(std::move(*wrong));
        return decoded;
    }
    std::ranges::copy(content.subspan(8, 6), decoded.ap.emplace().begin());
    std::size_t offset = content[1];
    for (std::size_t left = load(content.subspan(3, 2)); left > 0; left--) {
        const auto rest = content.subspan(offset);
        if (auto wrong = check_record_header(rest, offset)) {
            decoded.items.emplace_back(std::move(*wrong));
            return decoded;
        }
        const std::size_t length = load(rest.subspan(2, 2));
        decoded.items.push_back(decode_item(rest.first(length), offset, sent));
        offset += length;
    }
    if (offset != content.size()) {
        decoded.items.emplace_back(malformation{
            offset, std::nullopt, std::to_string(content.size() - offset) + " bytes after the last record"});
    }
    return decoded;
}

bytes encode(const mac_address &ap, std::span<const record> records) {
    bytes content = {1, message_header_size, 0, 0, 0, 0, 0, 0};
    append(content, ap);
    for (const record &each : records) {
        append_record(content, each);
    }
    store(std::span(content).subspan(3, 2), static_cast<std::uint32_t>(records.size()));
    store(std::span(content).subspan(6, 2), static_cast<std::uint32_t>(content.size()));
    return content;
}

bytes encode(const mac_address &ap, const record &one) { return encode(ap, std::span(&one, 1)); }

}  // namespace controller
