#include "radiod/check/check.h"

#include <grp.h>
#include <net/if.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <system_error>

#include "common/event_ptr.h"
#include "common/events.h"
#include "common/ipc_endpoint.h"
#include "common/trusted_users.h"
#include "radiod/check/roaming.h"
#include "radiod/hostapd/control.h"
#include "radiod/interface_pool.h"
#include "radiod/kernel/bridge_vlans.h"

namespace radiod {
namespace {

namespace fs = std::filesystem;

// 0 or the errno of connecting to the datagram socket.
int connect_error(const std::string &path) {
    try {
        const kx::ipc_address address = kx::make_ipc_address(path);
        const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const int error = connect(fd, address.get(), address.length) == 0 ? 0 : errno;
        close(fd);
        return error;
    } catch (const std::system_error &failure) {
        return failure.code().value();
    }
}

// The same for the user of the service: root may connect to every socket.
int connect_error_of_service(const std::string &path) {
    const std::optional<uid_t> user = geteuid() == 0 ? kx::radio_user() : std::nullopt;
    const passwd *const entry = user ? getpwuid(*user) : nullptr;
    if (entry == nullptr) {
        return connect_error(path);
    }
    const pid_t child = fork();
    if (child == 0) {
        const bool is_user =
            initgroups(entry->pw_name, entry->pw_gid) == 0 && setgid(entry->pw_gid) == 0 && setuid(entry->pw_uid) == 0;
        _exit(is_user ? connect_error(path) : EPERM);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : EAGAIN;
}

// Why a socket cannot be used, with the remedy.
std::string explain(const std::string &path, const std::string &directory, int error) {
    switch (error) {
        case ENOENT:
            return "hostapd has no control socket " + path + ": start hostapd with ctrl_interface=" + directory;
        case EACCES:
            return "radiod may not use hostapd's control socket " + path +
                   ": set ctrl_interface_group in hostapd.conf to a group of radiod's user";
        case ECONNREFUSED:
            return "hostapd has ended and left its control socket " + path + ": start it";
        default:
            return path + ": " + std::strerror(error);
    }
}

// The lines of a reply that are looked at. Others may have a passphrase.
std::string keep_lines(std::string_view reply) {
    constexpr std::array<std::string_view, 7> kept = {
        "state=", "bss[", "num_sta[", "ssid=", "key_mgmt=", "radiusAuthServerAddress=", "radiusAuthClient"};
    std::string result;
    while (!reply.empty()) {
        const std::string_view line = reply.substr(0, reply.find('\n'));
        reply.remove_prefix(std::min(reply.size(), line.size() + 1));
        if (std::ranges::any_of(kept, [line](std::string_view start) { return line.starts_with(start); })) {
            result.append(line) += '\n';
        }
    }
    return result;
}

// Asks one hostapd. `done` is called when view.hostapd or view.no_replies_because is set.
class questions {
public:
    questions(event_base *base, const std::string &directory, vap_view &view, std::function<void()> done)
        : view_(view), done_(std::move(done)), control_(base, directory, view.wanted.ifname) {
        control_.on_up = [this] {
            ask("STATUS", &vap_view::replies::status, false);
            ask("GET_CONFIG", &vap_view::replies::config, false);
            ask("MIB", &vap_view::replies::mib, true);
        };
    }

private:
    void ask(const char *command, std::string vap_view::replies::*into, bool is_last) {
        control_.send(command, [this, into, is_last](std::optional<std::string_view> reply) {
            if (is_finished_) {
                return;
            }
            collected_.*into = keep_lines(reply.value_or(""));
            if (!reply) {
                view_.no_replies_because = "hostapd does not answer: restart it";
            } else if (is_last) {
                view_.hostapd = collected_;
            }
            if (!reply || is_last) {
                is_finished_ = true;
                done_();
            }
        });
    }

    vap_view &view_;
    std::function<void()> done_;
    vap_view::replies collected_;
    bool is_finished_ = false;
    control control_;
};

void ask_all(const std::string &directory, std::vector<vap_view> &views) {
    const kx::event_base_ptr base(event_base_new());
    std::vector<std::unique_ptr<questions>> open;
    std::size_t missing = 0;
    for (vap_view &view : views) {
        const std::string path = directory + "/" + view.wanted.ifname;
        if (const int error = connect_error_of_service(path)) {
            view.no_replies_because = explain(path, directory, error);
            continue;
        }
        view.no_replies_because = "hostapd does not answer: restart it";
        missing++;
        open.push_back(std::make_unique<questions>(base.get(), directory, view, [&] {
            if (--missing == 0) {
                event_base_loopbreak(base.get());
            }
        }));
    }
    if (missing > 0) {
        kx::watch overdue(base.get(), -1, 0, [&] { event_base_loopbreak(base.get()); });
        overdue.start(2 * control::reply_limit);
        event_base_dispatch(base.get());
    }
}

// The interfaces of VLANs, from lines "eth0.10        | 10  | eth0".
std::map<std::string, unsigned> read_vlans(const std::string &proc) {
    std::ifstream file(proc + "/net/vlan/config");
    std::map<std::string, unsigned> found;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string name, bar;
        unsigned id = 0;
        if (words >> name >> bar >> id && bar == "|") {
            found[name] = id;
        }
    }
    return found;
}

bridge_port port_of(const check_places &places, const std::string &ifname) {
    const fs::path master = fs::path(places.sys) / "class/net" / ifname / "master";
    std::error_code none;
    const fs::path bridge = fs::read_symlink(master, none);
    char filtering = '0';
    std::ifstream(master / "bridge/vlan_filtering") >> filtering;
    bridge_port port{.bridge = bridge.filename().string(), .separates_vlans = filtering == '1'};
    if (port.separates_vlans) {
        const auto vlans = list_port_vlans();
        const auto own = vlans ? vlans->find(if_nametoindex(ifname.c_str())) : decltype(vlans->end()){};
        if (vlans && own != vlans->end()) {
            port.pvid = own->second;
        }
        return port;
    }
    const auto vlans = read_vlans(places.proc);
    for (const fs::directory_entry &each : fs::directory_iterator(master / "brif", none)) {
        const auto found = vlans.find(each.path().filename().string());
        if (found != vlans.end()) {
            port.uplink_vlans.push_back(found->second);
        }
    }
    return port;
}

std::size_t count_interfaces(const std::string &sys, const std::string &ifname) {
    std::error_code none;
    const fs::directory_iterator all(fs::path(sys) / "class/net", none);
    return static_cast<std::size_t>(std::count_if(fs::begin(all), fs::end(all), [&](const fs::directory_entry &each) {
        return number_of_interface(each.path().filename().string(), ifname).has_value();
    }));
}

}  // namespace

check_result check(const check_places &places, const std::vector<kx::vap_config> &vaps) {
    std::vector<vap_view> views;
    for (const kx::vap_config &each : vaps) {
        if (each.enabled) {
            views.push_back({.wanted = each,
                             .hostapd = {},
                             .no_replies_because = {},
                             .settings = read_bss(places.proc, places.hostapd_directory, each.ifname),
                             .port = port_of(places, each.ifname),
                             .interfaces = count_interfaces(places.sys, each.ifname)});
        }
    }
    ask_all(places.hostapd_directory, views);
    check_result result = check_vaps(views, places.radius_port);
    if (places.carries_roamed) {
        check_roaming(views, look_at_kernel(places.proc, places.modules), result);
    }
    return result;
}

}  // namespace radiod
