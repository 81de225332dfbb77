#include "controller/store/sqlite/client_rows.h"

#include <algorithm>

namespace controller::sqlite {

place_blob blob_of(const place &one) {
    place_blob made{};
    std::ranges::copy(one.ap, made.begin());
    std::ranges::copy(one.bssid, made.begin() + one.ap.size());
    return made;
}

place place_of(std::span<const std::uint8_t> blob) {
    place made;
    if (blob.size() != made.ap.size() + made.bssid.size()) {
        throw failure(SQLITE_CORRUPT, "a place has " + std::to_string(blob.size()) + " bytes");
    }
    std::ranges::copy(blob.first(made.ap.size()), made.ap.begin());
    std::ranges::copy(blob.subspan(made.ap.size()), made.bssid.begin());
    return made;
}

client_row::client_row(const client &state) : now_(blob_of(state.now)), home_(blob_of(state.home)), state_(state) {}

void client_row::bind(statement &to, int first) const {
    to.bind(first, now_);
    if (state_.home == state_.now) {
        to.bind_null(first + 1);
    } else {
        to.bind(first + 1, home_);
    }
    if (state_.home_vlan) {
        to.bind(first + 2, std::int64_t{*state_.home_vlan});
    } else {
        to.bind_null(first + 2);
    }
    to.bind(first + 3, std::int64_t{state_.ip}).bind(first + 4, static_cast<std::int64_t>(state_.guest));
}

client read_client(const statement &from, int first) {
    client state;
    state.now = place_of(from.blob(first));
    state.home = from.is_null(first + 1) ? state.now : place_of(from.blob(first + 1));
    if (!from.is_null(first + 2)) {
        state.home_vlan = static_cast<std::uint32_t>(from.number(first + 2));
    }
    state.ip = static_cast<std::uint32_t>(from.number(first + 3));
    const auto guest = from.number(first + 4);
    if (guest < 0 || guest >= static_cast<std::int64_t>(guest_states)) {
        throw failure(SQLITE_CORRUPT, "a client's guest state is " + std::to_string(guest));
    }
    state.guest = static_cast<guest_state>(guest);
    return state;
}

}  // namespace controller::sqlite
