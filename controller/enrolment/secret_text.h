// Text that is overwritten before its memory is given back. A text of less than 16 bytes may be in the object itself,
// and is not overwritten.
#ifndef CONTROLLER_ENROLMENT_SECRET_TEXT_H
#define CONTROLLER_ENROLMENT_SECRET_TEXT_H

#include <openssl/crypto.h>

#include <cstddef>
#include <memory>
#include <string>

namespace controller {

template <class Value>
struct erasing_allocator {
    using value_type = Value;

    erasing_allocator() = default;
    template <class Other>
    erasing_allocator(const erasing_allocator<Other> &) {}

    Value *allocate(std::size_t number) { return std::allocator<Value>().allocate(number); }
    void deallocate(Value *gone, std::size_t number) {
        OPENSSL_cleanse(gone, number * sizeof(Value));
        std::allocator<Value>().deallocate(gone, number);
    }
    bool operator==(const erasing_allocator &) const = default;
};

using secret_text = std::basic_string<char, std::char_traits<char>, erasing_allocator<char>>;

}  // namespace controller

#endif
