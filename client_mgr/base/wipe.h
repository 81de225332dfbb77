// Erasing keys. The compiler may drop a plain memset of memory that is not read afterwards.
#ifndef CLIENT_MGR_BASE_WIPE_H
#define CLIENT_MGR_BASE_WIPE_H

#include <cstddef>
#include <cstring>

inline void wipe(void *data, size_t size) {
    memset(data, 0, size);
    __asm__ volatile("" : : "r"(data) : "memory");
}

// Erases an object at the end of the guard's scope.
class wipe_guard {
public:
    template <class T>
    explicit wipe_guard(T &object) : data_(&object), size_(sizeof object) {}
    ~wipe_guard() { wipe(data_, size_); }
    wipe_guard(const wipe_guard &) = delete;
    wipe_guard &operator=(const wipe_guard &) = delete;

private:
    void *data_;
    size_t size_;
};

// Erases the 1 KiB of stack below the caller's frame, where functions that have returned may have left keys.
[[gnu::noinline]] inline void wipe_stack_below() {
    char left_behind[1024];
    wipe(left_behind, sizeof left_behind);
}

#endif
