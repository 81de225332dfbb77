#include "apctl/view_reader.h"

#include <cstring>
#include <utility>

namespace apctl {

namespace {

constexpr std::size_t records_max = 16384;
constexpr std::size_t answers_max = 64;  // that nobody has taken

std::string text_of(std::span<const std::uint8_t> bytes) { return {bytes.begin(), bytes.end()}; }

template <typename Record>
Record begin_of(std::span<const std::uint8_t> body) {
    if (body.size() < sizeof(Record)) {
        throw malformed_view("a record is too short");
    }
    Record record{};
    std::memcpy(&record, body.data(), sizeof(record));
    return record;
}

}  // namespace

std::uint64_t shown::number(const std::string &name) const {
    const auto found = numbers.find(name);
    return found == numbers.end() ? 0 : found->second;
}

std::string shown::text(const std::string &name) const {
    const auto found = texts.find(name);
    return found == texts.end() ? "" : found->second;
}

void view_reader::feed(std::span<const std::uint8_t> bytes) {
    rest_.insert(rest_.end(), bytes.begin(), bytes.end());
    std::span<const std::uint8_t> left(rest_);
    while (left.size() >= sizeof(kx::view_head)) {
        const auto head = begin_of<kx::view_head>(left);
        if (left.size() - sizeof(head) < head.length) {
            break;
        }
        record(static_cast<kx::view_kind>(std::uint16_t{head.kind}), left.subspan(sizeof(head), head.length));
        left = left.subspan(sizeof(head) + head.length);
    }
    rest_.erase(rest_.begin(), rest_.end() - static_cast<std::ptrdiff_t>(left.size()));
}

void view_reader::record(kx::view_kind kind, std::span<const std::uint8_t> body) {
    if (++records_ > records_max || whole_.size() == answers_max) {
        throw malformed_view("the answer is too long");
    }
    switch (kind) {
        case kx::view_kind::end:
            whole_.push_back(std::exchange(begun_, {}));
            records_ = 0;
            break;
        case kx::view_kind::number: {
            const auto value = begin_of<kx::view_number>(body);
            begun_.numbers[text_of(body.subspan(sizeof(value)))] = std::uint64_t{value.high} << 32 | value.low;
            break;
        }
        case kx::view_kind::text: {
            const std::size_t name = begin_of<kx::view_text>(body).name_length;
            if (name > body.size() - 1) {
                throw malformed_view("a name is longer than its record");
            }
            begun_.texts[text_of(body.subspan(1, name))] = text_of(body.subspan(1 + name));
            break;
        }
        case kx::view_kind::vap:
            begun_.vaps.push_back(begin_of<kx::view_vap>(body));
            break;
        case kx::view_kind::client: {
            const auto client = begin_of<kx::view_client>(body);
            begun_.clients[client.client] = client;
            break;
        }
    }
}

std::optional<shown> view_reader::take() {
    if (whole_.empty()) {
        return std::nullopt;
    }
    shown first = std::move(whole_.front());
    whole_.erase(whole_.begin());
    return first;
}

}  // namespace apctl
