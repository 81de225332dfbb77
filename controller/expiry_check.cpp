#include "controller/expiry_check.h"

#include <syslog.h>

namespace controller {

expiry_check::expiry_check(event_base *base, const options &chosen, const tunnels &of, const api::service *http,
                           output &to)
    : chosen_(chosen), tunnels_(of), http_(http), output_(to), day_passed_(base, -1, EV_PERSIST, [this] { run(); }) {
    day_passed_.start(std::chrono::days(1));
    run();
}

void expiry_check::run() {
    report(warning_, chosen_.certificate, tunnels_.certificate_end());
    report(authority_warning_, chosen_.ca, tunnels_.authority_end());
    if (http_ != nullptr) {
        report(http_warning_, chosen_.http.certificate, http_->certificate_end());
    }
}

void expiry_check::report(kx::expiry_warning &of, const std::string &file, std::optional<kx::wall_time> end) {
    if (!end) {
        return;
    }
    if (const auto line = of.check(file, *end, std::chrono::system_clock::now())) {
        output_.note(line->text);
        syslog(LOG_DAEMON | (line->ended ? LOG_ERR : LOG_WARNING), "%s", line->text.c_str());
    }
}

}  // namespace controller
