// The access point's certificate, its key and its authority's certificate.
#ifndef APD_CERTIFICATES_H
#define APD_CERTIFICATES_H

#include <array>
#include <functional>
#include <optional>

#include "common/ap_config.h"
#include "common/events.h"
#include "common/file_version.h"
#include "tunnel/certificate_life.h"

namespace apd {

// Notices new files, and warns before a certificate ends.
class certificates {
public:
    // `on_new` is called when files have changed that can be used.
    certificates(event_base *base, std::function<void()> on_new);

    // Takes the files of `controller` from now on. Faults are reported.
    void use(const kx::controller_config &controller);
    // Looks whether a file has changed; to be called every few seconds.
    void check_files();
    // None when the certificate cannot be read.
    std::optional<kx::wall_time> end() const { return end_; }

private:
    using versions = std::array<kx::file_version, 3>;

    versions current_versions() const;
    bool load();
    void check_ends();
    static void report_end(kx::expiry_warning &of, const std::string &file, std::optional<kx::wall_time> end);

    std::function<void()> on_new_;
    kx::controller_config controller_;
    versions seen_;
    std::optional<kx::wall_time> end_, authority_end_;
    kx::expiry_warning warning_, authority_warning_;
    kx::watch day_passed_;
};

}  // namespace apd

#endif
