#include "bytes.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <stdexcept>

namespace sim {
namespace {

constexpr std::string_view DIGITS = "0123456789abcdef";
constexpr size_t SHORTEST_RUN = 16;

size_t run_length(const uint8_t *data, size_t count) {
    size_t run = 1;
    while (run < count && data[run] == data[0]) {
        run++;
    }
    return run;
}

template <class T>
bytes in_host_order(T value) {
    bytes out(sizeof(value));
    memcpy(out.data(), &value, sizeof(value));
    return out;
}

}  // namespace

bytes operator+(bytes front, const bytes &back) {
    front.insert(front.end(), back.begin(), back.end());
    return front;
}

bytes hex(std::string_view digits) {
    bytes out;
    int high = -1;
    for (char c : digits) {
        if (c == ' ') {
            continue;
        }
        const size_t value = DIGITS.find(static_cast<char>(tolower(c)));
        if (value == std::string_view::npos) {
            throw std::invalid_argument("not hexadecimal: " + std::string(digits));
        }
        if (high < 0) {
            high = static_cast<int>(value);
        } else {
            out.push_back(static_cast<uint8_t>(high << 4 | static_cast<int>(value)));
            high = -1;
        }
    }
    if (high >= 0) {
        throw std::invalid_argument("an odd number of digits: " + std::string(digits));
    }
    return out;
}

bytes mac_bytes(std::string_view mac) {
    std::string digits(mac);
    std::replace(digits.begin(), digits.end(), ':', ' ');
    return hex(digits);
}

bytes padded(std::string_view text, size_t width) {
    if (text.size() > width) {
        throw std::invalid_argument("longer than its field: " + std::string(text));
    }
    bytes out(text.begin(), text.end());
    out.resize(width);
    return out;
}

bytes zeros(size_t count) { return bytes(count); }

bytes big16(uint16_t value) { return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}; }

bytes big32(uint32_t value) { return big16(static_cast<uint16_t>(value >> 16)) + big16(static_cast<uint16_t>(value)); }

bytes host16(uint16_t value) { return in_host_order(value); }

bytes host32(uint32_t value) { return in_host_order(value); }

bytes first(const bytes &all, size_t count) {
    if (count > all.size()) {
        throw std::invalid_argument("not that many bytes");
    }
    return bytes(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count));
}

std::string show(const uint8_t *data, size_t count) {
    std::string out;
    for (size_t i = 0; i < count;) {
        const size_t run = run_length(data + i, count - i);
        const std::string digits{DIGITS[data[i] >> 4], DIGITS[data[i] & 15]};
        if (run >= SHORTEST_RUN) {
            out += (out.empty() ? "" : " ") + digits + "*" + std::to_string(run) + " ";
            i += run;
        } else {
            out += digits;
            i++;
        }
    }
    return out;
}

bytes shown(std::string_view text) {
    bytes out;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(word.size() + 1, text.size()));
        const size_t star = word.find('*');
        const bytes some = hex(word.substr(0, star));
        const size_t times = star == std::string_view::npos ? 1 : std::stoul(std::string(word.substr(star + 1)));
        for (size_t i = 0; i < times; i++) {
            out.insert(out.end(), some.begin(), some.end());
        }
    }
    return out;
}

std::string show(const bytes &data) { return show(data.data(), data.size()); }

}  // namespace sim
