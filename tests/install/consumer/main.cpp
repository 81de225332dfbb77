// Starts the daemon on the platform in port.c, whose event loop ends at once.
#include "client_mgr/startup.h"
#include "wire/local_messages.h"

extern "C" int port_runs;  // of the event loop

static_assert(KX_MSG_ID_SYS_INIT == 17);

int main() { return client_mgr_main() == 0 && port_runs == 1 ? 0 : 1; }
