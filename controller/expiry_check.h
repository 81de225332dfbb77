// Warns before a certificate of the controller, or its authority's, ends.
#ifndef CONTROLLER_EXPIRY_CHECK_H
#define CONTROLLER_EXPIRY_CHECK_H

#include "common/events.h"
#include "controller/api/service.h"
#include "controller/options.h"
#include "controller/output.h"
#include "controller/tunnels.h"

namespace controller {

// Checks once a day. All that it is given must outlive it.
class expiry_check {
public:
    // `http` is null without an HTTP API.
    expiry_check(event_base *base, const options &chosen, const tunnels &of, const api::service *http, output &to);

    // To be called for new certificates.
    void run();

private:
    void report(kx::expiry_warning &of, const std::string &file, std::optional<kx::wall_time> end);

    const options &chosen_;
    const tunnels &tunnels_;
    const api::service *http_;
    output &output_;
    kx::expiry_warning warning_, authority_warning_, http_warning_;
    kx::watch day_passed_;
};

}  // namespace controller

#endif
