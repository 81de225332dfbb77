// The life of a lab process that reads one local endpoint.
#ifndef LAB_ENDPOINT_LOOP_H
#define LAB_ENDPOINT_LOOP_H

#include <functional>

#include "common/local_ipc.h"

namespace lab {

// Hands every message that arrives at `endpoint` to `take`, until SIGINT or SIGTERM arrives or `take` returns false.
// Throws std::system_error.
void serve_endpoint(kx::ipc_socket &endpoint, const std::function<bool(const kx::ipc_message &)> &take);

}  // namespace lab

#endif
