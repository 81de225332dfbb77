// What the client manager shows of itself (wire/view.h): its numbers, its VAPs and its clients, without their keys.
//
// This part of the port reads the daemon's tables, so only the program that is linked with the daemon has it.
#ifndef PLATFORM_LINUX_DAEMON_VIEW_DAEMON_VIEW_H
#define PLATFORM_LINUX_DAEMON_VIEW_DAEMON_VIEW_H

#include "common/view_server.h"

namespace kx {

class daemon_view final : public view_source {
public:
    std::uint32_t write(view_request asked, std::uint32_t position, view_writer &to) override;
    std::uint32_t changes() const override;
};

}  // namespace kx

#endif
