#include "controller/store/pmk_cipher.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <fstream>
#include <memory>

#include "common/hex.h"
#include "common/permissions.h"
#include "controller/store/store.h"

namespace controller {

namespace {

constexpr std::size_t nonce_size = 12;
constexpr std::size_t tag_size = 16;

struct free_context {
    void operator()(EVP_CIPHER_CTX *one) const { EVP_CIPHER_CTX_free(one); }
};
using cipher_context = std::unique_ptr<EVP_CIPHER_CTX, free_context>;

[[noreturn]] void fail() { throw store_error("cannot encrypt PMKs"); }

void expect(int result) {
    if (result != 1) {
        fail();
    }
}

int length_of(std::span<const std::uint8_t> content) { return static_cast<int>(content.size()); }

}  // namespace

pmk_cipher::~pmk_cipher() { OPENSSL_cleanse(key_.data(), key_.size()); }

pmk_cipher pmk_cipher::read(const std::string &file) {
    try {
        kx::require_safe_key(file);
    } catch (const std::exception &error) {
        throw store_error(error.what());
    }
    std::ifstream from(file);
    std::string text(2 * key_size + 2, '\0');
    from.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(from.gcount()));
    if (text.ends_with('\n')) {
        text.pop_back();
    }
    auto digits = text.size() == 2 * key_size ? kx::parse_hex(text) : std::nullopt;
    OPENSSL_cleanse(text.data(), text.size());
    if (!digits) {
        throw store_error(file + ": expected a key of 64 hexadecimal digits; \"(umask 077; openssl rand -hex 32 > " +
                          file + ")\" makes one");
    }
    key read{};
    std::ranges::copy(*digits, read.begin());
    OPENSSL_cleanse(digits->data(), digits->size());
    const pmk_cipher made(read);
    OPENSSL_cleanse(read.data(), read.size());
    return made;
}

bytes pmk_cipher::seal(const mac_address &station, std::span<const std::uint8_t> pmk) const {
    bytes sealed(nonce_size + pmk.size() + tag_size);
    const cipher_context context(EVP_CIPHER_CTX_new());
    int length = 0;
    expect(RAND_bytes(sealed.data(), nonce_size));
    expect(EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key_.data(), sealed.data()));
    expect(EVP_EncryptUpdate(context.get(), nullptr, &length, station.data(), length_of(station)));
    expect(EVP_EncryptUpdate(context.get(), sealed.data() + nonce_size, &length, pmk.data(), length_of(pmk)));
    expect(EVP_EncryptFinal_ex(context.get(), sealed.data() + nonce_size + length, &length));
    expect(EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, tag_size, &sealed[sealed.size() - tag_size]));
    return sealed;
}

std::optional<bytes> pmk_cipher::open(const mac_address &station, std::span<const std::uint8_t> sealed) const {
    if (sealed.size() < nonce_size + tag_size) {
        return std::nullopt;
    }
    const auto content = sealed.subspan(nonce_size, sealed.size() - nonce_size - tag_size);
    std::array<std::uint8_t, tag_size> tag{};
    std::ranges::copy(sealed.last(tag_size), tag.begin());
    bytes pmk(content.size());
    const cipher_context context(EVP_CIPHER_CTX_new());
    int length = 0;
    expect(EVP_DecryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key_.data(), sealed.data()));
    expect(EVP_DecryptUpdate(context.get(), nullptr, &length, station.data(), length_of(station)));
    expect(EVP_DecryptUpdate(context.get(), pmk.data(), &length, content.data(), length_of(content)));
    expect(EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, tag_size, tag.data()));
    return EVP_DecryptFinal_ex(context.get(), pmk.data() + length, &length) == 1 ? std::optional(pmk) : std::nullopt;
}

}  // namespace controller
