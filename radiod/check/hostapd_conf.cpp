#include "radiod/check/hostapd_conf.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace radiod {
namespace {

namespace fs = std::filesystem;

// The front of `text` up to `end`, which is taken from `text` with that character.
std::string_view take_until(std::string_view &text, char end) {
    const std::string_view front = text.substr(0, text.find(end));
    text.remove_prefix(std::min(front.size() + 1, text.size()));
    return front;
}

// At most 1 MiB of a regular file; empty when it cannot be read.
std::string read_file(const fs::path &path) {
    constexpr std::size_t most = 1U << 20U;
    std::error_code failed;
    if (!fs::is_regular_file(path, failed)) {
        return {};
    }
    std::ifstream file(path, std::ios::binary);
    std::string text(most, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    return text;
}

// The arguments of a process that may be files.
std::vector<fs::path> files_of(const fs::path &process) {
    std::error_code failed;
    const fs::path directory = fs::read_symlink(process / "cwd", failed);
    const std::string arguments = read_file(process / "cmdline");
    std::string_view rest = arguments;
    take_until(rest, '\0');  // the program
    std::vector<fs::path> files;
    while (!rest.empty()) {
        const std::string_view argument = take_until(rest, '\0');
        if (!argument.empty() && !argument.starts_with('-')) {
            files.push_back(directory / argument);
        }
    }
    return files;
}

void store(bss_settings &settings, std::string_view key, std::string_view value) {
    if (key == "macaddr_acl") {
        settings.macaddr_acl = value;
    } else if (key == "notify_mgmt_frames") {
        settings.notify_mgmt_frames = value;
    } else if (key == "ft_over_ds") {
        settings.ft_over_ds = value;
    } else if (key == "dynamic_vlan") {
        settings.dynamic_vlan = value;
    } else if (key == "bridge") {
        settings.bridge = value;
    }
}

bool is_hostapd(const fs::path &process) { return read_file(process / "comm") == "hostapd\n"; }

// Calls visit(key, value) for each setting.
template <typename F>
void for_each_setting(std::string_view text, F visit) {
    while (!text.empty()) {
        std::string_view value = take_until(text, '\n');
        if (value.ends_with('\r')) {
            value.remove_suffix(1);
        }
        if (!value.starts_with('#') && value.find('=') != std::string_view::npos) {
            const std::string_view key = take_until(value, '=');
            visit(key, value);
        }
    }
}

// Other hostapd processes may have an interface of this name in another network namespace.
bool is_controlled_in(std::string_view text, const fs::path &directory) {
    bool found = false;
    std::error_code failed;
    const fs::path wanted = fs::weakly_canonical(directory, failed);
    for_each_setting(text, [&](std::string_view key, std::string_view value) {
        found |= key == "ctrl_interface" && fs::weakly_canonical(fs::path(value), failed) == wanted;
    });
    return found;
}

}  // namespace

std::optional<bss_settings> find_bss(std::string_view text, std::string_view ifname) {
    std::optional<bss_settings> found;
    bool is_inside = false;
    for_each_setting(text, [&](std::string_view key, std::string_view value) {
        if (key == "interface" || key == "bss") {
            is_inside = value == ifname;
            if (is_inside) {
                found.emplace();
            }
        } else if (is_inside) {
            store(*found, key, value);
        }
    });
    return found;
}

std::optional<bss_settings> read_bss(const std::string &proc, const std::string &directory, std::string_view ifname) {
    std::error_code failed;
    for (const fs::directory_entry &process : fs::directory_iterator(proc, failed)) {
        if (!is_hostapd(process.path())) {
            continue;
        }
        for (const fs::path &file : files_of(process.path())) {
            std::string text = read_file(file);
            auto found = is_controlled_in(text, directory) ? find_bss(text, ifname) : std::nullopt;
            explicit_bzero(text.data(), text.size());  // it has passphrases
            if (found) {
                return found;
            }
        }
    }
    return std::nullopt;
}

}  // namespace radiod
