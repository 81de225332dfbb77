// Local IPC and the system monitor.
#ifndef TESTS_SIM_SERVICES_IPC_H
#define TESTS_SIM_SERVICES_IPC_H

#include <cstdint>

#include "bytes.h"
#include "kx/kx_ipc.h"

namespace sim {

constexpr size_t IPC_HDR_SIZE = 12;

class ipc_service {
public:
    ipc_service();

    // Delivers a local message.
    void local(uint32_t id, const bytes &payload, uint32_t flags = KX_IPC_FLAG_NOTIFICATION);

    kx_ipc_handle endpoint;
    uint8_t *rx_buf;
    uint32_t rx_buf_len;
    kx_ipc_recv_handler recv;
    kx_ipc_rx *answering = nullptr;  // the request being handled
    void open_endpoint();
    void close_endpoint();
};

}  // namespace sim

#endif
