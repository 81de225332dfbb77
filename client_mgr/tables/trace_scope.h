// The traces of a function's entry and exit.
#ifndef CLIENT_MGR_TABLES_TRACE_SCOPE_H
#define CLIENT_MGR_TABLES_TRACE_SCOPE_H

#include "client_mgr/base/log.h"

// Logs the entry to a function when constructed and the exit when destroyed, both with the line of the constructor's
// call. Logs nothing when `name` is null.
class trace_scope {
public:
    explicit trace_scope(const char *name = __builtin_FUNCTION(), int line = __builtin_LINE())
        : name_(name), line_(line) {
        if (name_ != nullptr) {
            CM_LOG(LOG_TRACE, ">>>>> %s() %d", name_, line_);
        }
    }
    ~trace_scope() {
        if (name_ != nullptr) {
            CM_LOG(LOG_TRACE, "<<<<< %s() %d", name_, line_);
        }
    }
    trace_scope(const trace_scope &) = delete;
    trace_scope &operator=(const trace_scope &) = delete;

private:
    const char *name_;
    int line_;
};

#endif
