#include "common/clean_heap.h"

#include <event2/event.h>
#include <malloc.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

void clean_free(void *memory) {
    if (memory != nullptr) {
        explicit_bzero(memory, malloc_usable_size(memory));
        std::free(memory);
    }
}

// Always moves the memory: realloc would not erase the old place.
void *clean_realloc(void *memory, std::size_t size) {
    if (size == 0) {
        clean_free(memory);
        return nullptr;
    }
    void *moved = std::malloc(size);
    if (moved == nullptr || memory == nullptr) {
        return moved;
    }
    std::memcpy(moved, memory, std::min(malloc_usable_size(memory), size));
    clean_free(memory);
    return moved;
}

void *openssl_malloc(std::size_t size, const char *, int) { return std::malloc(size); }
void *openssl_realloc(void *memory, std::size_t size, const char *, int) { return clean_realloc(memory, size); }
void openssl_free(void *memory, const char *, int) { clean_free(memory); }

}  // namespace

void kx::clean_libraries_heap() {
    event_set_mem_functions(std::malloc, clean_realloc, clean_free);
    CRYPTO_set_mem_functions(openssl_malloc, openssl_realloc, openssl_free);
}

void *operator new(std::size_t size) {
    void *memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void *memory) noexcept { clean_free(memory); }
void operator delete(void *memory, std::size_t) noexcept { clean_free(memory); }
