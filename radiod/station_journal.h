// The stations of the access point, how each came and its IPv4 address, in a file that outlives the process. The kernel
// still has the stations after a restart, but not the rest.
#ifndef RADIOD_STATION_JOURNAL_H
#define RADIOD_STATION_JOURNAL_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "common/mac_address.h"

namespace radiod {

using kx::mac_address;

// A text file to which a line is appended for each arrival and departure, written anew when it has many lines more than
// stations. When it cannot be written, the system log says so once, and a restart takes roamed stations for new ones.
class station_journal {
public:
    using key = std::pair<std::string, mac_address>;             // interface, station
    using stations = std::map<key, std::optional<mac_address>>;  // with the BSSID that a roamed station came from
    using addresses = std::map<mac_address, std::uint32_t>;      // IPv4, in the host's order, of those stations

    // Reads what an earlier process left. A missing file is an empty one. A damaged line is skipped.
    explicit station_journal(std::string path);
    ~station_journal();
    station_journal(const station_journal &) = delete;
    station_journal &operator=(const station_journal &) = delete;

    const stations &present() const { return present_; }
    const addresses &known_addresses() const { return addresses_; }
    void arrived(const std::string &ifname, const mac_address &station, const std::optional<mac_address> &previous);
    void departed(const std::string &ifname, const mac_address &station);
    // Of a station that is present; any other has none.
    void has_address(const mac_address &station, std::uint32_t ip);

private:
    static constexpr std::size_t spare_lines = 4096;

    void read_line(std::string_view line);
    bool is_present(const mac_address &station) const;
    bool remove(const key &who);
    void append(const std::string &line);
    void write_anew();
    void report_failure();

    std::string path_;
    stations present_;
    addresses addresses_;
    int fd_ = -1;
    std::size_t lines_ = 0;
    bool failed_ = false;
};

}  // namespace radiod

#endif
