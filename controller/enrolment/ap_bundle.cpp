#include "controller/enrolment/ap_bundle.h"

#include <archive.h>
#include <archive_entry.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace controller {

namespace {

constexpr const char *daemons_group = "kx";
constexpr mode_t secret_mode = 0640, open_mode = 0644;

struct archive_deleter {
    void operator()(archive *to) const { archive_write_free(to); }
    void operator()(archive_entry *entry) const { archive_entry_free(entry); }
};
using archive_ptr = std::unique_ptr<archive, archive_deleter>;
using entry_ptr = std::unique_ptr<archive_entry, archive_deleter>;

void require(archive *of, la_ssize_t result) {
    if (result < 0) {
        throw std::runtime_error(std::string("cannot make the bundle: ") + archive_error_string(of));
    }
}

la_ssize_t append(archive *, void *to, const void *bytes, std::size_t size) {
    static_cast<secret_text *>(to)->append(static_cast<const char *>(bytes), size);
    return static_cast<la_ssize_t>(size);
}

void add(archive *to, const char *name, std::string_view content, mode_t mode) {
    const entry_ptr entry(archive_entry_new());
    archive_entry_set_pathname(entry.get(), name);
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), mode);
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(content.size()));
    archive_entry_set_uname(entry.get(), "root");
    archive_entry_set_gname(entry.get(), daemons_group);
    archive_entry_set_mtime(entry.get(), std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()), 0);
    require(to, archive_write_header(to, entry.get()));
    require(to, archive_write_data(to, content.data(), content.size()));
}

}  // namespace

std::string sample_configuration(const kx::mac_address &mac, const controller_place &controller) {
    return "[ap]\nmac = \"" + kx::format_mac(mac) + "\"\n\n[controller]\naddress = \"" + controller.host +
           "\"\nport = " + std::to_string(controller.port) +
           "\nca = \"ca.pem\"\ncertificate = \"ap.pem\"\nkey = \"ap.key\"\n\n"
           "# One table for each VAP: see ap.toml(5).\n"
           "[[vap]]\nifname = \"wlan0\"\nssid = \"office\"\nvlan = 10\n";
}

secret_text pack(const ap_bundle &bundle) {
    secret_text packed;
    const archive_ptr to(archive_write_new());
    require(to.get(), archive_write_set_format_ustar(to.get()));
    require(to.get(), archive_write_set_bytes_per_block(to.get(), 0));  // its buffer would keep the key
    require(to.get(), archive_write_open2(to.get(), &packed, nullptr, append, nullptr, nullptr));
    add(to.get(), "ca.pem", bundle.authority, open_mode);
    add(to.get(), "ap.key", bundle.identity.key, secret_mode);
    add(to.get(), "ap.pem", bundle.identity.certificate, open_mode);
    if (!bundle.configuration.empty()) {
        add(to.get(), "ap.toml", bundle.configuration, open_mode);
    }
    require(to.get(), archive_write_close(to.get()));
    return packed;
}

}  // namespace controller
