#include "radiod/placement.h"

#include <net/if.h>

#include <algorithm>
#include <memory>
#include <system_error>

#include "common/program_log.h"

namespace radiod {

void placement::find_interfaces() {
    indices_.clear();
    std::set<std::uint16_t> numbers;
    const std::unique_ptr<struct if_nameindex[], void (*)(struct if_nameindex *)> all(if_nameindex(), if_freenameindex);
    for (const struct if_nameindex *each = all.get(); each != nullptr && each->if_index != 0; each++) {
        if (const auto number = number_of_interface(each->if_name, ifname_)) {
            indices_[*number] = each->if_index;
            numbers.insert(*number);
        }
    }
    pool_.use(numbers);
}

bool placement::has_index(unsigned ifindex) const {
    return std::ranges::any_of(indices_, [ifindex](const auto &each) { return each.second == ifindex; });
}

unsigned placement::index_of(std::uint16_t number) const {
    const auto found = indices_.find(number);
    return found == indices_.end() ? 0 : found->second;
}

void placement::make_room(time_point now) {
    if (homes_.size() >= stations_max) {
        std::erase_if(homes_, [now](const auto &each) { return each.second.answered + association_time <= now; });
    }
    if (homes_.size() >= stations_max) {
        homes_.clear();
    }
}

void placement::home_found(const mac_address &station, const mac_address &home_bssid, time_point now) {
    make_room(now);
    homes_[station] = {.bssid = home_bssid, .answered = now};
    if (home_bssid == mac_address{}) {
        if (!is_apart(station)) {
            pool_.release(station, now);
        }
    } else if (!pool_.take(station, now)) {
        kx::log_line(ifname_ + ": all interfaces for single stations are taken");
    }
}

bool placement::was_answered(const mac_address &station, time_point now) const {
    const auto found = homes_.find(station);
    return found != homes_.end() && found->second.answered + association_time > now;
}

mac_address placement::home_of(const mac_address &station) const {
    const auto found = homes_.find(station);
    return found == homes_.end() ? mac_address{} : found->second.bssid;
}

bool placement::lacks_interface(const mac_address &station) const {
    return home_of(station) != mac_address{} && pool_.find(station) == 0;
}

bool placement::is_apart(const mac_address &station) const {
    const auto found = interfaces_.find(station);
    return found != interfaces_.end() && has_index(found->second);
}

void placement::arrived(const mac_address &station, std::uint16_t number, unsigned vap) {
    const unsigned own = number == 0 ? 0 : index_of(number);
    if (own == 0) {
        addresses_.erase(station);
    } else {
        pool_.arrived(station, number);
        try {
            const auto added = addresses_.try_emplace(station, base_, ifname_ + '.' + std::to_string(number)).first;
            added->second.on_address = [this](const seen_address &seen) { on_address(seen); };
        } catch (const std::system_error &error) {
            kx::log_line(ifname_ + ": a station's address cannot be seen: " + error.what());
        }
    }
    const unsigned ifindex = own != 0 ? own : vap;
    interfaces_[station] = ifindex;
    on_interface(station, ifindex);
}

void placement::departed(const mac_address &station, time_point now) {
    addresses_.erase(station);
    pool_.release(station, now);
    if (interfaces_.erase(station) > 0) {
        on_interface(station, 0);
    }
}

void placement::report_all() const {
    for (const auto &[station, ifindex] : interfaces_) {
        on_interface(station, ifindex);
    }
}

}  // namespace radiod
