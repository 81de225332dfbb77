#include "controller/store/sqlite/site_rows.h"

#include <algorithm>
#include <limits>
#include <variant>

#include "common/hex.h"

namespace controller::sqlite {

namespace {

constexpr std::int64_t audit_entries_max = 100000;

// The row that stands for indexes without a list.
constexpr std::int64_t every_index = -1;

// What check_key() seals, so that a key can be compared when there are no PMKs.
constexpr mac_address no_station{};
constexpr std::array<std::uint8_t, 8> known_text{};

std::int64_t stored(wall_time at) { return at.time_since_epoch().count(); }
wall_time time_of(std::int64_t stored) { return wall_time(std::chrono::milliseconds(stored)); }

template <typename Enum>
Enum checked(std::int64_t value, Enum last) {
    if (value < 0 || value > static_cast<std::int64_t>(last)) {
        throw failure(SQLITE_CORRUPT, "a value is out of its range");
    }
    return static_cast<Enum>(value);
}

}  // namespace

void require_key(std::span<const std::uint8_t> sealed, const pmk_cipher &cipher) {
    if (!cipher.open(no_station, sealed)) {
        throw store_error("its PMKs are encrypted with another key: use that key");
    }
}

void check_key(const connection &database, const pmk_cipher &cipher) {
    statement known(database, "SELECT value FROM meta WHERE name = 'key'");
    if (known.step()) {
        require_key(known.blob(0), cipher);
        return;
    }
    const bytes sealed = cipher.seal(no_station, known_text);
    statement(database, "INSERT INTO meta VALUES ('key', ?)").bind(0, sealed).run();
}

void site_rows::add(const change &one, wall_time at) {
    at_ = at;
    std::visit([this](const auto &of) { write(of); }, one);
}

void site_rows::write(const pmk_change &one) {
    if (!one.pmk) {
        erase_pmk_.bind(0, one.mac).run();
    } else if (cipher_) {
        const bytes sealed = cipher_->seal(one.mac, *one.pmk);
        put_pmk_.bind(0, one.mac).bind(1, sealed).run();
    }
}

void site_rows::replace_pmks(const std::vector<stored_pmk> &pmks) {
    if (!cipher_) {
        return;
    }
    database_.run("DELETE FROM pmk");
    for (const stored_pmk &each : pmks) {
        write(pmk_change{each.mac, each.pmk});
    }
}

void site_rows::write(const client_name &one) {
    if (one.name.empty()) {
        statement(database_, "DELETE FROM client_name WHERE mac = ?").bind(0, one.mac).run();
    } else {
        statement put(database_, "INSERT OR REPLACE INTO client_name VALUES (?, ?)");
        put.bind(0, one.mac).bind(1, one.name).run();
    }
}

void site_rows::write(const acl_default &one) {
    const std::int64_t index = one.index ? std::int64_t{*one.index} : every_index;
    statement put(database_, "INSERT OR REPLACE INTO acl_list VALUES (?, ?)");
    put.bind(0, index).bind(1, static_cast<std::int64_t>(one.decision)).run();
}

void site_rows::write(const acl_entry &one) {
    if (!one.decision) {
        statement erase(database_, "DELETE FROM acl_entry WHERE mac_acl_index = ? AND mac = ?");
        erase.bind(0, std::int64_t{one.index}).bind(1, one.client).run();
        return;
    }
    statement put(database_, "INSERT OR REPLACE INTO acl_entry VALUES (?, ?, ?)");
    put.bind(0, std::int64_t{one.index}).bind(1, one.client).bind(2, static_cast<std::int64_t>(*one.decision)).run();
}

void site_rows::write(const acl_cleared &) { database_.run("DELETE FROM acl_entry; DELETE FROM acl_list"); }

void site_rows::write(const enrolled_ap &one) {
    statement put(database_, "INSERT OR REPLACE INTO access_point VALUES (?, ?, ?, ?, ?)");
    put.bind(0, one.mac).bind(1, one.name).bind(2, one.certificate).bind(3, one.site);
    put.bind(4, std::int64_t{one.revoked}).run();
}

void site_rows::write(const erased_ap &one) {
    statement(database_, "DELETE FROM access_point WHERE mac = ?").bind(0, one.mac).run();
}

void site_rows::write(const operator_account &one) {
    statement put(database_, "INSERT OR REPLACE INTO operator VALUES (?, ?, ?)");
    put.bind(0, one.name).bind(1, static_cast<std::int64_t>(one.may)).bind(2, one.password_hash).run();
}

void site_rows::write(const erased_operator &one) {
    statement(database_, "DELETE FROM operator WHERE name = ?").bind(0, one.name).run();
    statement(database_, "DELETE FROM token WHERE operator = ?").bind(0, one.name).run();
}

void site_rows::write(const api_token &one) {
    statement put(database_, "INSERT OR REPLACE INTO token VALUES (?, ?, ?, ?, ?, ?, ?)");
    put.bind(0, one.id).bind(1, one.operator_name).bind(2, static_cast<std::int64_t>(one.may)).bind(3, one.hash);
    put.bind(4, one.note).bind(5, stored(one.created));
    if (one.expires) {
        put.bind(6, stored(*one.expires));
    }
    put.run();
}

void site_rows::write(const erased_token &one) {
    statement(database_, "DELETE FROM token WHERE id = ?").bind(0, one.id).run();
}

void site_rows::write(const audit_entry &one) {
    statement put(database_, "INSERT INTO audit (at, who, what, subject, outcome) VALUES (?, ?, ?, ?, ?)");
    put.bind(0, stored(at_)).bind(1, one.who).bind(2, one.what).bind(3, one.subject).bind(4, one.outcome).run();
    statement bound(database_, "DELETE FROM audit WHERE number <= ?");
    bound.bind(0, sqlite3_last_insert_rowid(database_.get()) - audit_entries_max).run();
}

namespace {

void load_pmks(const connection &database, const pmk_cipher &cipher, contents &to) {
    statement rows(database, "SELECT mac, sealed FROM pmk ORDER BY mac");
    while (rows.step()) {
        const mac_address mac = rows.mac(0);
        auto pmk = cipher.open(mac, rows.blob(1));
        if (!pmk) {
            throw failure(SQLITE_CORRUPT, "the PMK of " + kx::format_mac(mac) + " is damaged");
        }
        to.pmks.push_back({mac, std::move(*pmk)});
    }
}

void load_access_lists(const connection &database, contents &to) {
    statement lists(database, "SELECT mac_acl_index, verdict FROM acl_list ORDER BY mac_acl_index");
    while (lists.step()) {
        const auto index =
            lists.number(0) == every_index ? std::nullopt : std::optional(static_cast<std::uint32_t>(lists.number(0)));
        to.acl_defaults.push_back({index, checked(lists.number(1), verdict::allow)});
    }
    statement entries(database, "SELECT mac_acl_index, mac, verdict FROM acl_entry ORDER BY mac_acl_index, mac");
    while (entries.step()) {
        to.acl_entries.push_back({static_cast<std::uint32_t>(entries.number(0)), entries.mac(1),
                                  checked(entries.number(2), verdict::allow)});
    }
}

}  // namespace

void site_rows::load(contents &to) const {
    if (cipher_) {
        load_pmks(database_, *cipher_, to);
    }
    statement names(database_, "SELECT mac, name FROM client_name ORDER BY mac");
    while (names.step()) {
        to.names.push_back({names.mac(0), names.text(1)});
    }
    load_access_lists(database_, to);
    statement aps(database_, "SELECT mac, name, certificate, site, revoked FROM access_point ORDER BY mac");
    while (aps.step()) {
        to.aps.push_back({aps.mac(0), aps.text(1), aps.text(2), aps.text(3), aps.number(4) != 0});
    }
    statement operators(database_, "SELECT name, role, password_hash FROM operator ORDER BY name");
    while (operators.step()) {
        to.operators.push_back({operators.text(0), checked(operators.number(1), role::admin), operators.text(2)});
    }
    statement tokens(database_, "SELECT id, operator, role, hash, note, created, expires FROM token ORDER BY id");
    while (tokens.step()) {
        const auto expires = tokens.is_null(6) ? std::nullopt : std::optional(time_of(tokens.number(6)));
        to.tokens.push_back({tokens.text(0), tokens.text(1), checked(tokens.number(2), role::admin), tokens.text(3),
                             tokens.text(4), time_of(tokens.number(5)), expires});
    }
}

void add_revoked(const connection &from, const connection &to) {
    const transaction moment(from, transaction::mode::read);
    transaction change(to);
    statement revoked(from, "SELECT mac, name, certificate, site FROM access_point WHERE revoked <> 0");
    statement name_taken(to, "SELECT 1 FROM access_point WHERE name = ? AND mac <> ?");
    statement put(to, "INSERT OR REPLACE INTO access_point VALUES (?, ?, ?, ?, 1)");
    while (revoked.step()) {
        const mac_address mac = revoked.mac(0);
        std::string name = revoked.text(1);
        const std::string certificate = revoked.text(2), site = revoked.text(3);
        if (name_taken.bind(0, name).bind(1, mac).step()) {
            name = "revoked-" + kx::format_hex(mac);
        }
        name_taken.reset();
        put.bind(0, mac).bind(1, name).bind(2, certificate).bind(3, site).run();
    }
    change.commit();
}

std::vector<audit_record> read_audit(const connection &database, const page_of &page) {
    constexpr auto all = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    statement rows(database,
                   "SELECT number, at, who, what, subject, outcome FROM audit WHERE number < ?"
                   " ORDER BY number DESC LIMIT ?");
    rows.bind(0, static_cast<std::int64_t>(std::min(page.before.value_or(all), all)));
    rows.bind(1, static_cast<std::int64_t>(std::min(page.limit, page_limit_max)));
    std::vector<audit_record> read;
    while (rows.step()) {
        read.push_back({static_cast<std::uint64_t>(rows.number(0)),
                        time_of(rows.number(1)),
                        {rows.text(2), rows.text(3), rows.text(4), rows.text(5)}});
    }
    return read;
}

}  // namespace controller::sqlite
