#include "tests/unit/freed_memory.h"

#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

std::span<const std::uint8_t> wanted;
std::size_t found = 0;

void give_back(void *block) {
    if (block != nullptr && !wanted.empty() &&
        memmem(block, malloc_usable_size(block), wanted.data(), wanted.size()) != nullptr) {
        found++;
    }
    std::free(block);
}

}  // namespace

freed_memory::freed_memory(std::span<const std::uint8_t> text) {
    wanted = text;
    found = 0;
}

freed_memory::~freed_memory() { wanted = {}; }

std::size_t freed_memory::blocks_with_text() { return found; }

void *operator new(std::size_t size) {
    void *block = std::malloc(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}
void operator delete(void *block) noexcept { give_back(block); }
void operator delete(void *block, std::size_t) noexcept { give_back(block); }
