#include "radiod/station_journal.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "common/ipv4.h"

namespace radiod {
namespace {

std::string arrival_line(const station_journal::key &who, const std::optional<mac_address> &previous) {
    std::string line = "+ " + who.first + ' ' + kx::format_mac(who.second);
    if (previous) {
        line += ' ' + kx::format_mac(*previous);
    }
    return line + '\n';
}

std::string address_line(const mac_address &station, std::uint32_t ip) {
    return "= " + kx::format_mac(station) + ' ' + kx::format_ipv4(ip) + '\n';
}

}  // namespace

station_journal::station_journal(std::string path) : path_(std::move(path)) {
    std::ifstream file(path_);
    for (std::string line; std::getline(file, line);) {
        read_line(line);
    }
    write_anew();
}

station_journal::~station_journal() { close(fd_); }

void station_journal::read_line(std::string_view line) {
    std::istringstream words{std::string(line)};
    std::string kind, ifname, station_text, previous_text;
    words >> kind >> ifname >> station_text >> previous_text;
    if (kind == "=") {
        const auto station = kx::parse_mac(ifname);
        in_addr ip{};
        if (station && is_present(*station) && inet_pton(AF_INET, station_text.c_str(), &ip) == 1) {
            addresses_[*station] = ntohl(ip.s_addr);
        }
        return;
    }
    const std::optional<mac_address> station = kx::parse_mac(station_text);
    if (!station) {
        return;
    }
    if (kind == "+") {
        present_.insert_or_assign({ifname, *station}, kx::parse_mac(previous_text));
    } else if (kind == "-") {
        remove({ifname, *station});
    }
}

bool station_journal::is_present(const mac_address &station) const {
    return std::ranges::any_of(present_, [&](const auto &each) { return each.first.second == station; });
}

bool station_journal::remove(const key &who) {
    if (present_.erase(who) == 0) {
        return false;
    }
    if (!is_present(who.second)) {
        addresses_.erase(who.second);
    }
    return true;
}

void station_journal::arrived(const std::string &ifname, const mac_address &station,
                              const std::optional<mac_address> &previous) {
    const key who{ifname, station};
    present_.insert_or_assign(who, previous);
    append(arrival_line(who, previous));
}

void station_journal::departed(const std::string &ifname, const mac_address &station) {
    if (remove({ifname, station})) {
        append("- " + ifname + ' ' + kx::format_mac(station) + '\n');
    }
}

void station_journal::has_address(const mac_address &station, std::uint32_t ip) {
    const auto known = addresses_.find(station);
    if ((known == addresses_.end() || known->second != ip) && is_present(station)) {
        addresses_[station] = ip;
        append(address_line(station, ip));
    }
}

void station_journal::append(const std::string &line) {
    if (++lines_ > present_.size() + addresses_.size() + spare_lines) {
        write_anew();
    } else if (write(fd_, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        report_failure();
    }
}

void station_journal::write_anew() {
    std::string text;
    for (const auto &[who, previous] : present_) {
        text += arrival_line(who, previous);
    }
    for (const auto &[station, ip] : addresses_) {
        text += address_line(station, ip);
    }
    const std::string aside = path_ + '~';
    const int fd =
        open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        std::rename(aside.c_str(), path_.c_str()) != 0) {
        report_failure();
        close(fd);
        return;
    }
    close(fd_);
    fd_ = fd;
    lines_ = present_.size() + addresses_.size();
}

void station_journal::report_failure() {
    if (!failed_) {
        syslog(LOG_USER | LOG_ERR, "%s: %s; after a restart roamed stations pass for new ones", path_.c_str(),
               std::strerror(errno));
    }
    failed_ = true;
}

}  // namespace radiod
