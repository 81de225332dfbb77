// Blocks of a capture file (pcapng, draft-ietf-opsawg-pcapng) whose packets are exported PDUs: a packet names the
// protocol that dissects it. Integers are in the host's order, as the file's first block says.
#ifndef CONTROLLER_CAPTURE_BLOCKS_H
#define CONTROLLER_CAPTURE_BLOCKS_H

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace controller::capture_blocks {

struct packet {
    std::uint32_t interface;  // number of its interface block in the file, from 0
    std::chrono::system_clock::time_point at;
    std::string_view protocol;  // name of the dissector
    std::uint32_t ipv4;         // of the access point; 0 for none
    bool to_controller;
    std::uint64_t dropped;  // packets of this interface since the one before
    std::span<const std::uint8_t> message;
};

// The first block of a file.
std::string section(std::string_view program);
std::string interface(std::string_view name, std::string_view description);
std::string enhanced_packet(const packet &what);

}  // namespace controller::capture_blocks

#endif
