// hostapd's configuration file.
#ifndef RADIOD_CHECK_HOSTAPD_CONF_H
#define RADIOD_CHECK_HOSTAPD_CONF_H

#include <optional>
#include <string>
#include <string_view>

namespace radiod {

// Settings of one BSS that hostapd's control interface does not show, as text and with hostapd's defaults.
struct bss_settings {
    std::string macaddr_acl = "0", notify_mgmt_frames = "0", ft_over_ds = "1", dynamic_vlan = "0", bridge;
};

// The settings of the BSS on `ifname` in the text of a configuration file. They begin at its line "interface=" or
// "bss=". None when the file has no such BSS.
std::optional<bss_settings> find_bss(std::string_view text, std::string_view ifname);

// The settings of the BSS on `ifname` from the files of the running hostapd processes, below `proc` ("/proc"): from the
// one whose ctrl_interface is `directory`. None when no such file can be read; only root may read most of these files.
std::optional<bss_settings> read_bss(const std::string &proc, const std::string &directory, std::string_view ifname);

}  // namespace radiod

#endif
