#include "services/names.h"

#include <cstring>

#include "effects.h"

namespace sim {

std::string name_text(const char *name, size_t room) {
    const size_t length = strnlen(name, room);
    if (length == room) {
        here().complain("a name without terminator: " + escaped({name, room}));
    }
    return {name, length};
}

}  // namespace sim
