// Built without sanitizers: it reads and writes what lies between the variables, too.
#include "daemon_state.h"

#include <cstdlib>

#include "client_mgr/base/client_mgr_cfg.h"

// The linker's own names of the section's bounds.
extern "C" uint8_t __start_core_state[];
extern "C" uint8_t __stop_core_state[];

namespace sim {
namespace {

constexpr size_t WORDS = 4;  // of a block
constexpr size_t BLOCK = WORDS * sizeof(uint64_t);
constexpr size_t SAVED_BLOCK = 2 + BLOCK;

size_t section_size() { return static_cast<size_t>(__stop_core_state - __start_core_state); }
size_t block_count() { return (section_size() + BLOCK - 1) / BLOCK; }

// Byte for byte, and no call of memcpy: a sanitizer would look into that.
void copy(uint8_t *to, const uint8_t *from, size_t count) {
    for (size_t i = 0; i < count; i++) {
        static_cast<volatile uint8_t *>(to)[i] = from[i];
    }
}

uint64_t word_at(const uint8_t *p) {
    uint64_t w;
    __builtin_memcpy(&w, p, sizeof w);
    return w;
}

// The bytes of a block that belong to the section.
size_t length_of(size_t block) {
    const size_t left = section_size() - block * BLOCK;
    return left < BLOCK ? left : BLOCK;
}

// Whether it lies in the message buffers from end to end: one follows the other.
bool is_scratch(size_t block) {
    const uint8_t *at = __start_core_state + block * BLOCK;
    return at >= g_cfg.ctrlr_msg_buf && at + BLOCK <= g_cfg.ipc_rx_buf + sizeof g_cfg.ipc_rx_buf;
}

// What of the message buffers shares a block with something else.
void clear_edges() {
    for (size_t i = 0; i < BLOCK; i++) {
        static_cast<volatile uint8_t *>(g_cfg.ctrlr_msg_buf)[i] = 0;
        static_cast<volatile uint8_t *>(g_cfg.ipc_rx_buf)[sizeof g_cfg.ipc_rx_buf - 1 - i] = 0;
    }
}

bool differs(const uint8_t *live, const uint8_t *base) {
    uint64_t any = 0;
    for (size_t i = 0; i < WORDS; i++) {
        any |= word_at(live + i * 8) ^ word_at(base + i * 8);
    }
    return any != 0;
}

bool differs_at_all(const uint8_t *live, const uint8_t *base, size_t length) {
    for (size_t i = 0; i < length; i++) {
        if (live[i] != base[i]) {
            return true;
        }
    }
    return false;
}

}  // namespace

daemon_state::daemon_state() : base_(block_count() * WORDS) {
    if (block_count() > UINT16_MAX) {
        abort();
    }
    clear_edges();
    copy(reinterpret_cast<uint8_t *>(base_.data()), __start_core_state, section_size());
}

std::vector<uint8_t> daemon_state::save() {
    clear_edges();
    const auto *base = reinterpret_cast<const uint8_t *>(base_.data());
    std::vector<uint8_t> saved;
    dirty_.clear();
    for (size_t block = 0; block < block_count(); block++) {
        const uint8_t *live = __start_core_state + block * BLOCK;
        const size_t length = length_of(block);
        const bool changed =
            length == BLOCK ? differs(live, base + block * BLOCK) : differs_at_all(live, base + block * BLOCK, length);
        if (!changed || is_scratch(block)) {
            continue;
        }
        dirty_.push_back(static_cast<uint16_t>(block));
        saved.push_back(static_cast<uint8_t>(block >> 8));
        saved.push_back(static_cast<uint8_t>(block));
        for (size_t i = 0; i < BLOCK; i++) {
            saved.push_back(i < length ? live[i] : uint8_t{0});
        }
    }
    return saved;
}

void daemon_state::restore(const uint8_t *saved, size_t size) {
    const auto *base = reinterpret_cast<const uint8_t *>(base_.data());
    for (const uint16_t block : dirty_) {
        copy(__start_core_state + block * BLOCK, base + block * BLOCK, length_of(block));
    }
    dirty_.clear();
    for (size_t at = 0; at < size; at += SAVED_BLOCK) {
        const auto block = static_cast<uint16_t>(saved[at] << 8 | saved[at + 1]);
        copy(__start_core_state + block * BLOCK, saved + at + 2, length_of(block));
        dirty_.push_back(block);
    }
}

void daemon_state::leave_in_buffers(uint8_t value) {
    for (volatile uint8_t &byte : g_cfg.ctrlr_msg_buf) {
        byte = value;
    }
    for (volatile uint8_t &byte : g_cfg.ipc_rx_buf) {
        byte = value;
    }
}

// Two chains of multiplications that share nothing but their input.
state_hash hash_of(const std::vector<uint8_t> &saved) {
    state_hash h = {0x9ae16a3b2f90404f, 0xc949c7defebe1c31};
    const auto step = [&h](uint64_t w) {
        h.high = (h.high ^ w) * 0x9fb21c651e98df25;
        h.high ^= h.high >> 29;
        h.low = (h.low + w) * 0xd6e8feb86659fd93;
        h.low ^= h.low >> 32;
    };
    size_t at = 0;
    for (; at + 8 <= saved.size(); at += 8) {
        step(word_at(saved.data() + at));
    }
    for (; at < saved.size(); at++) {
        step(saved[at]);
    }
    step(saved.size());
    return h;
}

}  // namespace sim
