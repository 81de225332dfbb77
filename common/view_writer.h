// Writes records of wire/view.h.
#ifndef COMMON_VIEW_WRITER_H
#define COMMON_VIEW_WRITER_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "wire/view.h"

namespace kx {

class view_writer {
public:
    // A daemon's numbers and texts together fit.
    static constexpr std::size_t room = 4096;

    // There is always room for it, once.
    void put_end() { size_ += put_head(view_kind::end, 0); }
    // Each of the others returns false when the record does not fit, and then writes nothing.
    template <typename Record>
    bool put(view_kind kind, const Record &body) {
        return put(kind, {reinterpret_cast<const std::uint8_t *>(&body), sizeof(body)}, {});
    }
    bool put_number(std::string_view name, std::uint64_t value) {
        view_number head{};
        head.high = static_cast<std::uint32_t>(value >> 32);
        head.low = static_cast<std::uint32_t>(value);
        return put(view_kind::number, {reinterpret_cast<const std::uint8_t *>(&head), sizeof(head)}, name);
    }
    // `prefix` and `name` together are the name.
    bool put_number(std::string_view prefix, std::string_view name, std::uint64_t value) {
        std::array<char, 64> whole;
        if (prefix.size() + name.size() > whole.size()) {
            return false;
        }
        std::copy(name.begin(), name.end(), std::copy(prefix.begin(), prefix.end(), whole.begin()));
        return put_number({whole.data(), prefix.size() + name.size()}, value);
    }
    bool put_text(std::string_view name, std::string_view text) {
        std::array<std::uint8_t, 65> head;
        if (name.size() >= head.size()) {
            return false;
        }
        head[0] = static_cast<std::uint8_t>(name.size());
        std::copy(name.begin(), name.end(), head.begin() + 1);
        return put(view_kind::text, {head.data(), name.size() + 1}, text);
    }

    std::span<const std::uint8_t> written() const { return {bytes_.data(), size_}; }
    void clear() { size_ = 0; }

private:
    bool put(view_kind kind, std::span<const std::uint8_t> begin, std::string_view rest) {
        const std::size_t length = begin.size() + rest.size();
        if (length > room || size_ + sizeof(view_head) + length > room) {
            return false;
        }
        size_ += put_head(kind, length);
        const auto at = std::copy(begin.begin(), begin.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(size_));
        std::copy(rest.begin(), rest.end(), at);
        size_ += length;
        return true;
    }
    std::size_t put_head(view_kind kind, std::size_t length) {
        view_head head{};
        head.kind = static_cast<std::uint16_t>(kind);
        head.length = static_cast<std::uint16_t>(length);
        std::memcpy(bytes_.data() + size_, &head, sizeof(head));
        return sizeof(head);
    }

    std::array<std::uint8_t, room + sizeof(view_head)> bytes_{};
    std::size_t size_ = 0;
};

}  // namespace kx

#endif
