// Byte strings in tests.
#ifndef TESTS_SIM_BYTES_H
#define TESTS_SIM_BYTES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

struct bytes : std::vector<uint8_t> {
    using vector::vector;
};

bytes operator+(bytes front, const bytes &back);

// From hexadecimal digits. Blanks are skipped; anything else throws.
bytes hex(std::string_view digits);
// From a MAC address like "02:00:00:00:10:00".
bytes mac_bytes(std::string_view mac);
// `text` in a field of `width` bytes, NUL-padded.
bytes padded(std::string_view text, size_t width);
bytes zeros(size_t count);
// In network order.
bytes big16(uint16_t value);
bytes big32(uint32_t value);
// In the host's order.
bytes host16(uint16_t value);
bytes host32(uint32_t value);
// The first `count` bytes.
bytes first(const bytes &all, size_t count);

// Hexadecimal digits; a run of 16 or more equal bytes is written as "xx*count".
std::string show(const uint8_t *data, size_t count);
std::string show(const bytes &data);
// Parses the output of show().
bytes shown(std::string_view text);

}  // namespace sim

#endif
