// How recorded calls name their arguments.
#ifndef TESTS_SIM_SERVICES_NAMES_H
#define TESTS_SIM_SERVICES_NAMES_H

#include <string>

#include "platform.h"

namespace sim {

inline platform &here() { return *platform::current; }

inline std::string number(int64_t value) { return std::to_string(value); }

// A pointer that the platform keeps or hands back, by the name of what it points to.
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

// A NUL-terminated name that fits `room` bytes with its terminator.
std::string name_text(const char *name, size_t room);

}  // namespace sim

#endif
