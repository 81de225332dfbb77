#include "radiod/keys/pmkid.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace radiod {
namespace {

constexpr std::string_view label = "PMK Name";

const EVP_MD *digest_of(akm suite) {
    switch (suite) {
        case akm::ieee8021x:
            return EVP_sha1();
        case akm::ieee8021x_sha256:
            return EVP_sha256();
        default:
            return nullptr;
    }
}

}  // namespace

std::optional<pmkid> make_pmkid(akm suite, const pmk &key, const mac_address &bssid, const mac_address &station) {
    const EVP_MD *digest = digest_of(suite);
    if (digest == nullptr) {
        return std::nullopt;
    }
    std::array<std::uint8_t, label.size() + 2 * mac_address::size()> data{};
    auto end = std::ranges::copy(label, data.begin()).out;
    end = std::ranges::copy(bssid, end).out;
    std::ranges::copy(station, end);

    std::array<std::uint8_t, EVP_MAX_MD_SIZE> mac{};
    if (HMAC(digest, key.data(), static_cast<int>(key.size()), data.data(), data.size(), mac.data(), nullptr) ==
        nullptr) {
        throw std::runtime_error("HMAC is not available in libcrypto");
    }
    pmkid name{};
    std::ranges::copy_n(mac.begin(), name.size(), name.begin());
    return name;
}

}  // namespace radiod
