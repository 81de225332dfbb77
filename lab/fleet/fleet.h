// A fleet of access points on one controller, and the stations that use it.
#ifndef LAB_FLEET_FLEET_H
#define LAB_FLEET_FLEET_H

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "common/events.h"
#include "lab/fleet/access_point.h"
#include "lab/fleet/authority.h"
#include "lab/radio/loop.h"
#include "lab/radio/player.h"

namespace fleet {

class fleet {
public:
    struct settings {
        controller_address controller;
        double speed = 1;                    // seconds of the source per second
        double restarts = 0;                 // access points restarted a minute, while stations act
        std::chrono::seconds storm_every{};  // all tunnels break this often, while stations act; 0: never
        std::chrono::seconds patience{60};   // for the tunnels and for the end
        std::uint64_t seed = 1;              // of the restarts
        bool stay = false;                   // goes on until it is signalled
        bool json = false;
        std::string stations_file;  // written at the end of the events; empty: none
    };

    // Makes a certificate for each access point. `source` outlives the fleet. Throws std::runtime_error.
    fleet(const settings &how, const std::vector<radio::scenario_ap> &plans, const authority &issuer,
          radio::event_source &source);
    ~fleet();
    fleet(const fleet &) = delete;
    fleet &operator=(const fleet &) = delete;

    // Returns the exit status. SIGUSR1 breaks all tunnels and SIGUSR2 restarts all daemons.
    int run();

private:
    enum class phase : std::uint8_t { connecting, playing, settling, done };

    void add(const radio::scenario_ap &plan, const authority &issuer);
    void play(const radio::timed_event &next);
    void sent_away(const mac_address &client, const mac_address &bssid);
    void tick();
    void settle(std::chrono::steady_clock::time_point now);
    void restart_one();
    void restart_all();
    void storm();
    void finish();
    void give_up(const std::string &what);
    void end(int status);
    std::size_t tunnels() const;

    struct station_place {
        const access_point *ap;
        mac_address station, bssid;
        std::uint32_t ip;
    };
    // The stations that think they are where a radio has them. A radio also has some that are on another VLAN now.
    std::vector<station_place> stations() const;
    nlohmann::ordered_json state() const;
    nlohmann::ordered_json summary() const;
    void write_stations() const;
    void print(const char *event, nlohmann::ordered_json numbers) const;
    void show_progress();

    settings how_;
    radio::event_source &source_;
    radio::loop loop_;
    traffic traffic_;
    std::vector<std::unique_ptr<access_point>> aps_;
    std::map<mac_address, access_point *> vaps_;  // by BSSID
    radio::player player_;
    kx::watch tick_, progress_, restart_, storm_;
    std::mt19937_64 random_;
    phase phase_ = phase::connecting;
    int status_ = 0;
    std::chrono::steady_clock::time_point began_, phase_began_, last_traffic_;
    std::uint64_t messages_ = 0;  // when there was traffic last
    std::uint64_t records_at_progress_ = 0;
    std::uint64_t events_ = 0, restarts_ = 0, storms_ = 0, sent_away_ = 0, failures_ = 0;
    std::string last_failure_;
};

}  // namespace fleet

#endif
