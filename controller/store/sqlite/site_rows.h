// Everything but clients in SQLite: PMKs, access lists, access points, operators, tokens and the audit list.
#ifndef CONTROLLER_STORE_SQLITE_SITE_ROWS_H
#define CONTROLLER_STORE_SQLITE_SITE_ROWS_H

#include <optional>

#include "controller/store/pmk_cipher.h"
#include "controller/store/sqlite/database.h"

namespace controller::sqlite {

// Throws store_error when the database's PMKs were sealed with another key. A database without any takes this one.
void check_key(const connection &database, const pmk_cipher &cipher);

// Throws store_error unless `sealed`, which check_key() made, was made with this key.
void require_key(std::span<const std::uint8_t> sealed, const pmk_cipher &cipher);

class site_rows {
public:
    // Without a cipher no PMKs are stored; those that are stored already can be erased.
    site_rows(const connection &database, const std::optional<pmk_cipher> &cipher)
        : database_(database),
          cipher_(cipher),
          put_pmk_(database, "INSERT OR REPLACE INTO pmk VALUES (?, ?)"),
          erase_pmk_(database, "DELETE FROM pmk WHERE mac = ?") {}

    // All but the clients.
    void load(contents &to) const;
    // Any change but one of a client.
    void add(const change &one, wall_time at);
    void replace_pmks(const std::vector<stored_pmk> &pmks);

private:
    void write(const client_change &) {}
    void write(const pmk_change &one);
    void write(const client_name &one);
    void write(const acl_default &one);
    void write(const acl_entry &one);
    void write(const acl_cleared &);
    void write(const enrolled_ap &one);
    void write(const erased_ap &one);
    void write(const operator_account &one);
    void write(const erased_operator &one);
    void write(const api_token &one);
    void write(const erased_token &one);
    void write(const audit_entry &one);

    const connection &database_;
    const std::optional<pmk_cipher> &cipher_;
    statement put_pmk_, erase_pmk_;  // operators' changes are rare, and prepare theirs
    wall_time at_{};                 // of the present change
};

// Adds the revoked access points of another database, or revokes those that are there. Their names may have been given
// to others: they get new ones then.
void add_revoked(const connection &from, const connection &to);

std::vector<audit_record> read_audit(const connection &database, const page_of &page);

}  // namespace controller::sqlite

#endif
