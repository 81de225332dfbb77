#include "apd/certificates.h"

#include <chrono>
#include <exception>
#include <string>
#include <utility>

#include "apd/log.h"
#include "tunnel/tunnel.h"

namespace apd {

certificates::certificates(event_base *base, std::function<void()> on_new)
    : on_new_(std::move(on_new)), day_passed_(base, -1, EV_PERSIST, [this] { check_ends(); }) {
    day_passed_.start(std::chrono::days(1));
}

void certificates::use(const kx::controller_config &controller) {
    controller_ = controller;
    load();
}

void certificates::check_files() {
    if (current_versions() != seen_ && load()) {
        log_line("the certificate, its key or the authority's certificate has changed");
        on_new_();
    }
}

certificates::versions certificates::current_versions() const {
    return {kx::version_of(controller_.ca), kx::version_of(controller_.certificate), kx::version_of(controller_.key)};
}

// False when the files cannot be used.
bool certificates::load() {
    seen_ = current_versions();
    try {
        auto tls = kx::make_tls_context(controller_.ca, controller_.certificate, controller_.key);
        end_ = kx::end_of_own(tls.get());
        authority_end_ = kx::end_of_authority(tls.get());
        check_ends();
        return true;
    } catch (const std::exception &error) {
        end_.reset();
        authority_end_.reset();
        report(std::string("there will be no tunnel: ") + error.what());
        return false;
    }
}

void certificates::check_ends() {
    report_end(warning_, controller_.certificate, end_);
    report_end(authority_warning_, controller_.ca, authority_end_);
}

void certificates::report_end(kx::expiry_warning &of, const std::string &file, std::optional<kx::wall_time> end) {
    if (!end) {
        return;
    }
    if (auto line = of.check(file, *end, std::chrono::system_clock::now())) {
        line->ended ? report_error(line->text) : report(line->text);
    }
}

}  // namespace apd
