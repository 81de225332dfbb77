// Mutations of inputs that consist of a head of EVENTS_AT bytes and events, each a byte for its kind and a block.
// libFuzzer's own mutations of bytes seldom leave the later events intact.
#include <algorithm>
#include <random>
#include <vector>

#include "input.h"

extern "C" {
// LLVMFuzzerMutate is libFuzzer's own and returns the new size. libFuzzer calls the other two.
size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t max_size);
size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t max_size, unsigned seed);
size_t LLVMFuzzerCustomCrossOver(const uint8_t *data, size_t size, const uint8_t *other, size_t other_size,
                                 uint8_t *out, size_t max_size, unsigned seed);
}

namespace {

using bytes = std::vector<uint8_t>;

constexpr size_t BODY_GROWTH = 64;
constexpr size_t BODY_MAX = UINT16_MAX;

struct event {
    uint8_t kind;
    bytes body;
};

struct story {
    bytes head;
    std::vector<event> events;

    explicit story(std::span<const uint8_t> from) {
        fuzz::input in(from);
        const auto front = in.take(EVENTS_AT);
        head.assign(front.begin(), front.end());
        while (!in.empty()) {
            const uint8_t kind = in.byte();
            const auto body = in.block();
            events.push_back({kind, {body.begin(), body.end()}});
        }
    }

    // Writes as many events as there is room for. Returns the size.
    size_t write(uint8_t *out, size_t room) const {
        uint8_t *end = std::copy_n(head.begin(), std::min(head.size(), room), out);
        for (const event &each : events) {
            const size_t size = each.body.size();
            if (room - static_cast<size_t>(end - out) < 3 + size) {
                break;
            }
            *end++ = each.kind;
            *end++ = static_cast<uint8_t>(size >> 8);
            *end++ = static_cast<uint8_t>(size);
            end = std::copy(each.body.begin(), each.body.end(), end);
        }
        return static_cast<size_t>(end - out);
    }
};

class chance {
public:
    explicit chance(unsigned seed) : engine_(seed) {}
    // 0 to `limit` - 1.
    size_t below(size_t limit) { return engine_() % limit; }
    std::ptrdiff_t place(size_t limit) { return static_cast<std::ptrdiff_t>(below(limit)); }

private:
    std::minstd_rand engine_;
};

void mutate_body(bytes &body) {
    const size_t size = body.size();
    body.resize(std::min(size + BODY_GROWTH, BODY_MAX));
    body.resize(LLVMFuzzerMutate(body.data(), size, body.size()));
}

void mutate_events(std::vector<event> &events, chance &chance) {
    const std::ptrdiff_t at = chance.place(events.size());
    const std::ptrdiff_t to = chance.place(events.size());
    switch (chance.below(5)) {
        case 0:
            events.erase(events.begin() + at);
            return;
        case 1:
            events.insert(events.begin() + to, event(events[static_cast<size_t>(at)]));
            return;
        case 2:
            std::swap(events[static_cast<size_t>(at)], events[static_cast<size_t>(to)]);
            return;
        default:
            mutate_body(events[static_cast<size_t>(at)].body);
    }
}

}  // namespace

size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t max_size, unsigned seed) {
    chance chance(seed);
    story told({data, size});
    if (told.events.empty() || chance.below(2) == 0) {
        return LLVMFuzzerMutate(data, size, max_size);
    }
    mutate_events(told.events, chance);
    return told.write(data, max_size);
}

// Inserts some events of the other input.
size_t LLVMFuzzerCustomCrossOver(const uint8_t *data, size_t size, const uint8_t *other, size_t other_size,
                                 uint8_t *out, size_t max_size, unsigned seed) {
    chance chance(seed);
    story told({data, size});
    const story lent({other, other_size});
    if (!lent.events.empty()) {
        const auto first = lent.events.begin() + chance.place(lent.events.size());
        const auto last = first + std::min<std::ptrdiff_t>(1 + chance.place(4), lent.events.end() - first);
        told.events.insert(told.events.begin() + chance.place(told.events.size() + 1), first, last);
    }
    return told.write(out, max_size);
}
