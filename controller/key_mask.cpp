#include "controller/key_mask.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "common/key_fingerprint.h"
#include "controller/layouts.h"

namespace controller {

namespace {

using part = std::span<std::uint8_t>;

std::size_t load(std::span<const std::uint8_t> from) {
    std::size_t value = 0;
    for (const std::uint8_t byte : from) {
        value = value << 8 | byte;
    }
    return value;
}

void blank(part what) { std::ranges::fill(what, std::uint8_t{'x'}); }

bool all_zero(part what) {
    return std::ranges::all_of(what, [](std::uint8_t byte) { return byte == 0; });
}

void replace_key(part key) {
    const std::string fingerprint = kx::key_fingerprint(key);
    std::ranges::fill(key, std::uint8_t{0});
    std::ranges::copy_n(fingerprint.begin(), static_cast<std::ptrdiff_t>(std::min(fingerprint.size(), key.size())),
                        key.begin());
}

void mask_fields(part content, std::span<const field> fields) {
    for (const field &each : fields) {
        const part value = content.subspan(each.offset, each.width);
        if (all_zero(value)) {
            continue;
        }
        if (each.kind == field_kind::pmk) {
            replace_key(value);
        } else if (each.kind == field_kind::zero) {
            blank(value);
        }
    }
}

std::size_t load_field(part body, const field *from) {
    return from == nullptr ? 0 : load(body.subspan(from->offset, from->width));
}

const field *find_count(const record_layout &layout) {
    const auto found = std::ranges::find(layout.body, field_kind::count, &field::kind);
    return found == layout.body.end() ? nullptr : &*found;
}

// Of data that follow the body.
const field *find_length(const record_layout &layout) {
    const auto found = std::ranges::find_if(layout.body, [](const field &each) {
        return each.key != nullptr && std::string_view(each.key) == "data_length";
    });
    return found == layout.body.end() ? nullptr : &*found;
}

// What follows an open-ended body: its data, if they are all there, are explained.
void mask_tail(part tail, std::size_t data) { blank(tail.subspan(data <= tail.size() ? data : 0)); }

void mask_body(part body, const record_layout *layout) {
    if (layout == nullptr || body.size() < size_of(layout->body)) {
        blank(body);
        return;
    }
    const std::size_t fixed = size_of(layout->body);
    const std::size_t each = size_of(layout->entry);
    const std::size_t expected = fixed + load_field(body, find_count(*layout)) * each;
    if (body.size() < expected || (body.size() > expected && !layout->open_ended)) {
        blank(body);
        return;
    }
    mask_fields(body, layout->body);
    for (std::size_t at = fixed; at < expected; at += each) {
        mask_fields(body.subspan(at, each), layout->entry);
    }
    if (layout->open_ended) {
        mask_tail(body.subspan(expected), load_field(body, find_length(*layout)));
    }
}

// Masks the record at the start of `rest` and returns its length; 0, with all masked, when its end cannot be found.
std::size_t mask_record(part rest) {
    if (rest.size() < record_header_size) {
        blank(rest);
        return 0;
    }
    const std::size_t header = rest[1];
    const std::size_t length = load(rest.subspan(2, 2));
    if (header < record_header_size || header > length || length > rest.size()) {
        blank(rest.subspan(record_header_size));
        return 0;
    }
    blank(rest.subspan(record_header_size, header - record_header_size));
    mask_body(rest.subspan(header, length - header), find_layout(rest[0]));
    return length;
}

}  // namespace

bytes mask_keys(std::span<const std::uint8_t> message) {
    bytes copy(message.begin(), message.end());
    if (copy.size() < message_header_size) {
        return copy;
    }
    part rest = part(copy).subspan(message_header_size);
    if (copy[1] != message_header_size) {
        blank(rest);
        return copy;
    }
    for (std::size_t left = load(part(copy).subspan(3, 2)); left > 0; left--) {
        const std::size_t length = mask_record(rest);
        if (length == 0) {
            return copy;
        }
        rest = rest.subspan(length);
    }
    blank(rest);
    return copy;
}

}  // namespace controller
