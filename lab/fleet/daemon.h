// What client_mgr does on an access point, without its process: messages of the radio and the controller go in,
// messages to the controller and requests to the radio come out. The client table has client_mgr's flags and size.
// There are no bridge, captive portal and log.
#ifndef LAB_FLEET_DAEMON_H
#define LAB_FLEET_DAEMON_H

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <span>

#include "lab/radio/radio_stack.h"
#include "radio_service/notifications.h"
#include "wire/ctrlr_messages.h"
#include "wire/local_messages.h"

namespace fleet {

// client::flags
enum : std::uint32_t {
    client_local = 0x01,    // associated here as its home
    client_foreign = 0x02,  // from the controller, or asked of it
    client_tunnel = 0x08,   // on another VLAN than its home's
    client_pmk = 0x10,      // pmk is valid
    client_guest = 0x20,    // has not passed the portal
};

struct client {
    mac_address home_bssid{};
    mac_address bssid{};  // that it is on; zero when only the controller reported it
    std::uint32_t home_vlan = 0;
    std::uint32_t vlan = 0;  // of the VAP that it is on
    be32 ip{};
    std::size_t vap = 0;  // index; also 0 for a client that only the controller reported
    std::array<std::uint8_t, 32> pmk{};
    std::uint32_t flags = 0;
};

class daemon {
public:
    static constexpr std::size_t clients_max = 2048;

    // A whole controller message, valid during the call.
    using sender = std::function<void(std::span<const std::uint8_t> message)>;

    // `radio` outlives the daemon. It may report while one of the functions below runs; what it reports is to be
    // handled after that.
    daemon(const mac_address &ap, radio::radio_stack &radio, sender to_controller)
        : ap_(ap), radio_(radio), to_controller_(std::move(to_controller)) {}

    // Whether there is a tunnel. Without one the radio's messages have no effect.
    void set_ready(bool ready) { ready_ = ready; }
    // A message of the radio.
    void handle(const kx::notification &message);
    // A message of the controller that apd has let through.
    void receive(std::span<const std::uint8_t> message);
    // Forgets all clients and verdicts.
    void restart();

    // Null when there is none.
    const client *find(const mac_address &station) const;
    std::size_t clients() const { return clients_.size(); }

private:
    struct verdict {
        enum class state : std::uint8_t { pending, allowed, denied } is = state::pending;
        radio::clock::time_point since;
    };
    struct question {
        mac_address station, bssid;
        std::span<const std::uint8_t> data;
    };

    // daemon.cpp: the radio's messages
    void associate(association event);
    void roam_in(reassociation event);
    void disassociate(const association &event);
    void disassociate_foreign(const reassociation &event);
    void learn_address(const client_ip_notification &learnt);
    void add_pmk(const pmk_info_message &added);
    void fetch_pmk(pmk_info_message wanted);
    void answer_question(const question &asked);
    bool must_ask(const question &asked, bool other_vap);
    void ask_controller(const question &asked, std::size_t vap);

    // daemon_records.cpp: the controller's records
    using bytes = std::span<const std::uint8_t>;  // of a record, behind its header
    void apply(std::uint8_t type, bytes body, bool &pmk_only);
    void move(bytes body);
    void take_over(const client_entry &listed);
    void remove(const mac_address &station);
    void complete(bytes body, bool pmk_only);
    bool complete_roam(const client_entry &entry, const client &placeholder);
    void install_pmk(const client_entry &entry, client &known);
    void authorise(const mac_address &guest);
    void take_verdict(bytes body);

    // daemon_messages.cpp: to the controller and the radio
    template <typename Message>
    Message make_message(std::uint8_t type) const;
    void send_update(const reassociation &event, std::uint8_t type);
    void send_key_message(std::uint8_t type, const mac_address &station, const mac_address &bssid,
                          std::span<const std::uint8_t> pmk = {});
    void send_question(const question &asked, std::size_t vap);
    void send_configuration();
    void send_report();
    void fill(vap_record &record, std::uint8_t type, std::size_t length, const kx::vap_config &vap) const;
    void add_stations(std::vector<std::uint8_t> &message, std::size_t vap) const;
    void send_away(const mac_address &station, std::size_t vap);
    void push_verdict(std::uint32_t decision, const mac_address &bssid, std::span<const std::uint8_t> data);

    std::optional<std::size_t> find_vap(const mac_address &bssid) const;
    client *look_up(const mac_address &station);
    void store(const mac_address &station, const client &state);
    verdict *find_verdict(const mac_address &station);

    mac_address ap_;
    radio::radio_stack &radio_;
    sender to_controller_;
    bool ready_ = false;
    std::map<mac_address, client> clients_;
    std::map<mac_address, verdict> verdicts_;
};

}  // namespace fleet

#endif
