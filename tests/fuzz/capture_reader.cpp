// The radio's capture reader down to the associations. Input: 0 and a capture file; or the index of a link type and
// packets, each as a byte (1: the capture has cut it) and a block, which get a pcap file around them.
#include <array>
#include <stdexcept>
#include <vector>

#include "input.h"
#include "lab/radio/capture_source.h"
#include "memory_file.h"
#include "require.h"

namespace {

constexpr std::array LINKS = {radio::link_80211, radio::link_radiotap, radio::link_ppi, radio::link_prism,
                              radio::link_avs};

void put32(std::vector<uint8_t> &file, uint32_t value) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
        file.push_back(static_cast<uint8_t>(value >> shift));
    }
}

// libpcap's savefile header: magic, version 2.4, zone, accuracy, longest packet, link type. Each packet has its
// time, captured length and original length in front.
std::vector<uint8_t> pcap_file(fuzz::input in) {
    std::vector<uint8_t> file;
    const int link = LINKS[(in.byte() - 1u) % LINKS.size()];
    for (const uint32_t word : {0xa1b2c3d4u, 0x00040002u, 0u, 0u, 65535u, static_cast<uint32_t>(link)}) {
        put32(file, word);
    }
    for (uint32_t time = 0; !in.empty(); time++) {
        const uint32_t missing = in.byte() == 1 ? 1 : 0;
        const auto packet = in.block();
        const auto size = static_cast<uint32_t>(packet.size());
        for (const uint32_t word : {1600000000u + time, 0u, size, size + missing}) {
            put32(file, word);
        }
        file.insert(file.end(), packet.begin(), packet.end());
    }
    return file;
}

void read_all(const std::string &file) {
    radio::capture_source source(file);
    radio::timed_event event;
    radio::lab_time last{};
    for (auto step = source.next(event); step != radio::event_source::step::end; step = source.next(event)) {
        if (step == radio::event_source::step::event) {
            fuzz::require(event.at >= last, "time does not run backwards");
            last = event.at;
        }
    }
    uint64_t skipped = 0;
    for (const uint64_t frames : source.counters().skipped) {
        skipped += frames;
    }
    fuzz::require(skipped <= source.counters().frames, "no more frames are skipped than were read");
    for (const mac_address &ap : source.tracker().access_points()) {
        fuzz::require(source.tracker().ssid(ap).size() <= 32, "an SSID has at most 32 bytes");
    }
}

}  // namespace

void fuzz_one(std::span<const uint8_t> bytes) {
    if (bytes.empty()) {
        return;
    }
    if (bytes[0] != 0) {
        const std::vector<uint8_t> built = pcap_file(fuzz::input(bytes));
        const fuzz::memory_file file(built);
        read_all(file.path());
        return;
    }
    const fuzz::memory_file file(bytes.subspan(1));
    try {
        read_all(file.path());
    } catch (const std::runtime_error &error) {
        fuzz::require(std::string_view(error.what()).starts_with(file.path() + ":"), "an error names the file");
    }
}
