// 802.1X between hostapd and the servers: which server is asked, how often, and what its answer becomes.
#ifndef RADIOD_RADIUS_EAP_PROXY_H
#define RADIOD_RADIUS_EAP_PROXY_H

#include <functional>
#include <utility>

#include "radiod/radius/faults.h"
#include "radiod/radius/mac_question.h"
#include "radiod/radius/request_table.h"
#include "radiod/radius/server_choice.h"
#include "radiod/radius/settings.h"
#include "radiod/radius/translation.h"

namespace radiod::radius {

// A request is sent twice in 3 s, then to the next server, which is before hostapd itself repeats it for the second
// time. The last server gets it until hostapd's station has long given up. Every request to a server has an identifier
// and an authenticator of its own.
class eap_proxy {
public:
    // `secrets` outlive the object: hostapd's, and the servers' in the order of preference.
    eap_proxy(bytes hostapd_secret, std::vector<bytes> server_secrets);

    std::function<void(std::size_t server, bytes text)> send;
    std::function<void(const request_key &, datagram answer)> on_answer;
    std::function<void(const request_key &, fault)> on_given_up;
    std::function<void(const session_key &)> on_session_key;
    vlan_chooser vlan_of;
    std::function<void(std::size_t server, fault)> on_server_fault;

    // `request` is verified, is_eap and from hostapd.
    void forward(const request_key &from, const packet &request, const station_at_vap &station, time_point now);
    void receive(std::size_t server, bytes text, time_point now);
    // hostapd waits no longer.
    void forget(const request_key &from);

    // When handle_deadline is due; none while nothing waits.
    std::optional<time_point> deadline() const;
    void handle_deadline(time_point now);

private:
    struct exchange {
        request_key from;
        mac_address station, bssid;
        datagram request;  // as it came from hostapd
        time_point started;
        std::size_t servers = 0;  // that have been asked

        // At the server that is asked now.
        authenticator authentic{};
        datagram sent{};
        time_point first_sent{}, next{};
        std::chrono::seconds wait{};
        unsigned tries = 0;
    };
    using exchanges = std::map<std::uint8_t, exchange>;        // by the identifier at the server
    using conversation = std::pair<mac_address, mac_address>;  // BSSID, station

    void ask(std::size_t server, exchange waiting, time_point now);
    std::optional<std::uint8_t> free_identifier(std::size_t server);
    void repeat_or_move(std::size_t server, std::uint8_t identifier, time_point now);
    void move(std::size_t server, std::uint8_t identifier, time_point now);
    void note_silence(std::size_t server, const exchange &waiting, time_point now);
    void deliver(std::size_t server, const packet &answer, const exchange &asked);
    void report_key(const packet &accept, const exchange &asked, const clear_key &key);
    void remember_server(const packet &answer, const exchange &asked, std::size_t server);

    bytes hostapd_secret_;
    std::vector<bytes> server_secrets_;
    server_choice choice_;
    std::vector<exchanges> waiting_;               // by server
    std::vector<std::uint8_t> next_identifier_;    // by server
    std::map<conversation, std::size_t> servers_;  // that know the station's State
};

}  // namespace radiod::radius

#endif
