// Clients as rows in SQLite.
#ifndef CONTROLLER_STORE_SQLITE_CLIENT_ROWS_H
#define CONTROLLER_STORE_SQLITE_CLIENT_ROWS_H

#include <array>

#include "controller/store/sqlite/database.h"

namespace controller::sqlite {

using place_blob = std::array<std::uint8_t, 12>;  // MAC address of the access point, BSSID

place_blob blob_of(const place &one);
// Throws failure unless it has 12 bytes.
place place_of(std::span<const std::uint8_t> blob);

// A client's state as the columns now, home, vlan, ip, guest. The row must outlive the use of what it was bound to.
class client_row {
public:
    explicit client_row(const client &state);
    void bind(statement &to, int first) const;

private:
    place_blob now_, home_;
    client state_;
};

client read_client(const statement &from, int first);

}  // namespace controller::sqlite

#endif
