// The names of arguments in recorded calls.
#ifndef TESTS_SIM_SERVICES_NAMES_H
#define TESTS_SIM_SERVICES_NAMES_H

#include <string>

#include "platform.h"

namespace sim {

inline platform &here() { return *platform::current; }

inline std::string number(int64_t value) { return std::to_string(value); }

// Names a pointer after the object that it points to.
inline std::string name_of(const void *pointer, const void *known, const char *name) {
    if (pointer == nullptr) {
        return "null";
    }
    return pointer == known ? name : "stray pointer";
}

template <class F>
std::string handler_name(F handler, F known, const char *name) {
    if (handler == nullptr) {
        return "null";
    }
    return handler == known ? name : "stray handler";
}

inline std::string ipc_name(kx_ipc_handle ipc) { return name_of(ipc, here().endpoint, "ipc"); }

// The text of a NUL-terminated name. It must fit `room` bytes with its terminator.
std::string name_text(const char *name, size_t room);

}  // namespace sim

#endif
