// The tunnel's frames in a stream that arrives in pieces. Input: the length of a piece minus one, and the stream.
#include <event2/buffer.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "input.h"
#include "require.h"
#include "tunnel/tunnel_frames.h"

namespace {

using buffer = std::unique_ptr<evbuffer, void (*)(evbuffer *)>;

struct message {
    uint32_t destination;
    std::vector<uint8_t> bytes;
    bool operator==(const message &) const = default;
};

uint32_t number(std::span<const uint8_t> bytes) {
    uint32_t value = 0;
    for (const uint8_t each : bytes) {
        value = value << 8 | each;
    }
    return value;
}

bool is_client(std::span<const uint8_t> mac) {
    return mac[0] % 2 == 0 && std::ranges::any_of(mac, [](uint8_t each) { return each != 0; });
}

// One of the frames about clients on other VLANs.
bool is_roaming(std::span<const uint8_t> bytes) {
    switch (bytes[0]) {
        case 3:
            return bytes.size() == 5;
        case 4: {
            if (bytes.size() != 14 || bytes[1] < 1 || bytes[1] > 6) {
                return false;
            }
            const uint32_t vlan = number(bytes.subspan(8, 2));
            return bytes[1] >= 5 || (is_client(bytes.subspan(2, 6)) && (bytes[1] == 4 || (vlan >= 1 && vlan <= 4094)) &&
                                     (bytes[1] >= 3 || number(bytes.subspan(10, 4)) != 0));
        }
        case 5:
            return bytes.size() == 13 && is_client(bytes.subspan(1, 6));
        case 6:
            return bytes.size() == 21 && is_client(bytes.subspan(1, 6)) && number(bytes.subspan(19, 2)) <= 4094;
        default:
            return false;
    }
}

// The frames of the whole stream, and the length of its good part.
struct expectation {
    std::vector<message> messages;
    size_t length = 0;
    bool bad = false;
};

expectation expect(std::span<const uint8_t> stream) {
    expectation found;
    while (stream.size() - found.length >= kx::tunnel_header_size) {
        fuzz::input frame(stream.subspan(found.length));
        const uint32_t destination = frame.word32();
        const uint32_t length = frame.word32();
        const auto bytes = frame.take(length);
        const bool own = destination == 0;
        const bool end = !bytes.empty() && bytes[0] == 2;
        const bool keep_alive = length == 1 && !bytes.empty() && bytes[0] == 1;
        found.bad = length > 16384 || (own && (length < 1 || length > 201)) ||
                    (own && bytes.size() == length && !end && !keep_alive && !is_roaming(bytes));
        if (found.bad || bytes.size() < length) {
            break;
        }
        found.messages.push_back({destination, {bytes.begin(), bytes.end()}});
        found.length += kx::tunnel_header_size + length;
    }
    return found;
}

// Reads the whole frames. False after a bad one.
bool take_frames(evbuffer *input, std::vector<message> &taken) {
    const auto frame = std::make_unique<kx::tunnel_frame>();
    std::string fault;
    for (;;) {
        switch (kx::take_tunnel_frame(input, *frame, fault)) {
            case kx::frame_state::taken:
                taken.push_back({frame->destination, {frame->message().begin(), frame->message().end()}});
                break;
            case kx::frame_state::partial:
                return true;
            case kx::frame_state::bad:
                fuzz::require(!fault.empty(), "a bad frame has a fault");
                return false;
        }
    }
}

void check_reading(std::span<const uint8_t> stream, size_t piece, const expectation &expected) {
    const buffer input(evbuffer_new(), evbuffer_free);
    std::vector<message> taken;
    bool good = true;
    for (size_t at = 0; at < stream.size() && good; at += piece) {
        const auto part = stream.subspan(at, std::min(piece, stream.size() - at));
        evbuffer_add(input.get(), part.data(), part.size());
        good = take_frames(input.get(), taken);
    }
    fuzz::require(good == !expected.bad, "the stream is bad when one of its frames is");
    fuzz::require(taken == expected.messages, "the frames are those of the stream");
}

void check_writing(std::span<const uint8_t> stream, const expectation &expected) {
    const buffer output(evbuffer_new(), evbuffer_free);
    kx::frame_counter counter;
    for (const message &each : expected.messages) {
        kx::put_tunnel_frame(output.get(), each.destination, each.bytes);
        counter.add(kx::tunnel_header_size + each.bytes.size());
    }
    std::vector<uint8_t> written(evbuffer_get_length(output.get()));
    evbuffer_copyout(output.get(), written.data(), written.size());
    fuzz::require(std::ranges::equal(written, stream.first(expected.length)), "frames are written as they are read");

    size_t waiting = written.size();
    size_t left = expected.messages.size();
    for (const message &each : expected.messages) {
        fuzz::require(counter.count(waiting) == left, "a frame of which nothing is sent counts");
        waiting -= kx::tunnel_header_size + each.bytes.size() - 1;
        fuzz::require(counter.count(waiting) == left, "a frame whose last byte waits counts");
        waiting--;
        left--;
    }
    fuzz::require(counter.count(0) == 0, "no frame is left");
}

}  // namespace

void fuzz_one(std::span<const uint8_t> bytes) {
    fuzz::input in(bytes);
    const size_t piece = in.byte() + size_t{1};
    const auto stream = in.rest();
    const expectation expected = expect(stream);
    check_reading(stream, piece, expected);
    check_writing(stream, expected);
}
