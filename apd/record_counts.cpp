#include "apd/record_counts.h"

#include <algorithm>
#include <cstring>

namespace apd {

void record_counts::add(std::span<const std::uint8_t> message) {
    ctrlr_msg_hdr header{};
    if (message.size() < sizeof(header)) {
        return;
    }
    std::memcpy(&header, message.data(), sizeof(header));
    std::size_t offset = header.hdr_len;
    for (unsigned left = header.recs; left > 0 && offset + sizeof(ctrlr_rec_hdr) <= message.size(); left--) {
        ctrlr_rec_hdr record{};
        std::memcpy(&record, &message[offset], sizeof(record));
        add_record(record.rec_type);
        offset += std::max<std::size_t>(record.rec_len, sizeof(record));
    }
}

void record_counts::add_record(std::uint8_t type) {
    std::ranges::find(counts_.begin(), counts_.end() - 1, type, &count::type)->number++;
}

}  // namespace apd
