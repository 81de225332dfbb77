// What apd shows of itself (wire/view.h).
#ifndef APD_VIEW_H
#define APD_VIEW_H

#include <cstdint>
#include <ctime>

#include "apd/certificates.h"
#include "apd/controller_link.h"
#include "apd/losses.h"
#include "apd/monitor.h"
#include "apd/record_counts.h"
#include "common/view_server.h"

namespace apd {

class view final : public kx::view_source {
public:
    // All outlive the object.
    struct parts {
        const controller_link &link;
        const monitor &watched;
        const certificates &own;
        const losses &lost;
        const record_counts &sent;
    };

    explicit view(const parts &of) : of_(of) {}

    // Throws std::system_error.
    void start(event_base *base) { server_.start(base, kx::view_of_apd, *this); }
    void restore_socket() { server_.restore(); }
    void changed() { changes_++; }

    std::uint32_t write(kx::view_request asked, std::uint32_t position, kx::view_writer &to) override;
    std::uint32_t changes() const override { return changes_; }

private:
    parts of_;
    std::time_t started_ = std::time(nullptr);
    std::uint32_t changes_ = 0;
    kx::view_server server_;
};

}  // namespace apd

#endif
