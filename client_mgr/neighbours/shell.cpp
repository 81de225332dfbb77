#include "client_mgr/neighbours/shell.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "client_mgr/base/log.h"
#include "client_mgr/base/text_buffer.h"

namespace {

bool valid_in_ifname(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
           c == '-';
}

bool valid_ifname(const char *name) {
    const size_t len = strnlen(name, SHELL_IFNAME_MAX + 1);
    if (len == 0 || len > SHELL_IFNAME_MAX || name[0] == '-') {
        return false;
    }
    for (size_t i = 0; i < len; i++) {
        if (!valid_in_ifname(name[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace

void run_command(const char *announce, const char *ifname, const char *fmt, ...) {
    if (ifname != nullptr && !valid_ifname(ifname)) {
        CM_LOG(LOG_ERROR, "Invalid interface name, command not run");
        return;
    }
    char command[SHELL_COMMAND_SIZE];
    text_buffer text(command, sizeof command);
    va_list args;
    va_start(args, fmt);
    text.put_format(fmt, args);
    va_end(args);
    if (text.size() == sizeof command) {
        CM_LOG(LOG_ERROR, "Command too long, not run");
        return;
    }
    command[text.size()] = '\0';
    if (announce != nullptr) {
        CM_LOG(LOG_ERROR, "%s (%s)", announce, command);
    }
    [[maybe_unused]] const int result = system(command);
}
