#include "platform/linux/part_assembly.h"

#include <algorithm>
#include <cstring>

namespace kx {

part_assembly::outcome part_assembly::add(const apcomm_part &part, std::uint8_t *bytes,
                                          std::span<std::uint8_t> &message) {
    if (part.offset == 0) {
        clear();
        total_ = part.total;
    }
    if (part.total != total_ || part.offset != length_) {
        clear();
        return outcome::misplaced;
    }
    std::memcpy(room_.data() + length_, bytes, part.length);
    explicit_bzero(bytes, part.length);
    length_ += part.length;
    if (length_ < total_) {
        return outcome::incomplete;
    }
    message = room_.first(total_);
    total_ = length_ = 0;
    return outcome::complete;
}

void part_assembly::clear() {
    explicit_bzero(room_.data(), length_);
    total_ = length_ = 0;
}

}  // namespace kx
