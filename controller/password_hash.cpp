#include "controller/password_hash.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <vector>

#include "common/hex.h"

namespace controller {

namespace {

constexpr std::size_t salt_size = 16;
constexpr std::size_t key_size = 32;

struct parameters {
    std::uint32_t log_n, r, p;
};
constexpr parameters for_passwords = {15, 8, 3};
constexpr parameters for_secrets = {10, 8, 1};

struct parsed_hash {
    parameters cost;
    std::vector<std::uint8_t> salt, key;
};

std::vector<std::uint8_t> random_bytes(std::size_t size) {
    std::vector<std::uint8_t> made(size);
    if (RAND_bytes(made.data(), static_cast<int>(size)) != 1) {
        throw std::runtime_error("there are no random numbers");
    }
    return made;
}

std::vector<std::uint8_t> derive(std::string_view secret, const parameters &cost, std::span<const std::uint8_t> salt) {
    std::vector<std::uint8_t> key(key_size);
    constexpr std::uint64_t memory_max = std::uint64_t{64} << 20;
    if (EVP_PBE_scrypt(secret.data(), secret.size(), salt.data(), salt.size(), std::uint64_t{1} << cost.log_n, cost.r,
                       cost.p, memory_max, key.data(), key.size()) != 1) {
        throw std::runtime_error("scrypt failed");
    }
    return key;
}

std::string_view take(std::string_view &rest, char separator) {
    const std::string_view front = rest.substr(0, rest.find(separator));
    rest.remove_prefix(std::min(front.size() + 1, rest.size()));
    return front;
}

std::optional<std::uint32_t> parameter(std::string_view text, std::string_view name, std::uint32_t max) {
    if (!text.starts_with(name)) {
        return std::nullopt;
    }
    text.remove_prefix(name.size());
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool good = error == std::errc() && end == text.data() + text.size() && value >= 1 && value <= max;
    return good ? std::optional(value) : std::nullopt;
}

std::optional<parsed_hash> parse(std::string_view text) {
    if (!take(text, '$').empty() || take(text, '$') != "scrypt") {
        return std::nullopt;
    }
    std::string_view cost = take(text, '$');
    const auto log_n = parameter(take(cost, ','), "ln=", for_passwords.log_n);
    const auto r = parameter(take(cost, ','), "r=", for_passwords.r);
    const auto p = parameter(cost, "p=", for_passwords.p);
    auto salt = kx::parse_hex(take(text, '$'));
    auto key = kx::parse_hex(text);
    if (!log_n || !r || !p || !salt || salt->size() != salt_size || !key || key->size() != key_size) {
        return std::nullopt;
    }
    return parsed_hash{{*log_n, *r, *p}, std::move(*salt), std::move(*key)};
}

}  // namespace

std::string hash_secret(std::string_view secret, hash_cost cost) {
    const parameters &chosen = cost == hash_cost::password ? for_passwords : for_secrets;
    const std::vector<std::uint8_t> salt = random_bytes(salt_size);
    return "$scrypt$ln=" + std::to_string(chosen.log_n) + ",r=" + std::to_string(chosen.r) +
           ",p=" + std::to_string(chosen.p) + '$' + kx::format_hex(salt) + '$' +
           kx::format_hex(derive(secret, chosen, salt));
}

bool has_hash(std::string_view secret, std::string_view hash) {
    const auto parsed = parse(hash);
    if (!parsed) {
        return false;
    }
    try {
        return CRYPTO_memcmp(derive(secret, parsed->cost, parsed->salt).data(), parsed->key.data(), key_size) == 0;
    } catch (const std::exception &) {
        return false;
    }
}

bool is_hash(std::string_view text) { return parse(text).has_value(); }

std::string random_secret() { return kx::format_hex(random_bytes(32)); }

std::string random_id() { return kx::format_hex(random_bytes(8)); }

std::string fingerprint(std::string_view text) {
    std::array<std::uint8_t, 32> digest{};
    if (EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr) != 1) {
        throw std::runtime_error("SHA-256 failed");
    }
    return kx::format_hex(digest);
}

}  // namespace controller
