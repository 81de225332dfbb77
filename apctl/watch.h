// apctl watch
#ifndef APCTL_WATCH_H
#define APCTL_WATCH_H

#include "apctl/output.h"

namespace apctl {

// Prints changes as they come, until a signal ends it or nobody reads. Daemons may come and go.
void watch_changes(output &to);

}  // namespace apctl

#endif
