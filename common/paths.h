// Paths of the platform on this machine.
#ifndef COMMON_PATHS_H
#define COMMON_PATHS_H

#include <string>
#include <string_view>

namespace kx {

// $KX_ROOT, or "/run/kx" when it is not set or empty; without a trailing '/'.
std::string root();

// The file system path of a platform path such as "/kx/ipc/client_mgr": below root().
std::string place(std::string_view platform_path);

// $KX_CONFIG, or "ap.toml" below root().
std::string config_file();

// Makes the directory `path` and its missing parents with mode 0700. Throws std::system_error that names the directory.
void make_private_directories(const std::string &path);

// Files of the radio service, which may run as another user than the other processes.
inline constexpr std::string_view radio_directory = "/kx/radio";

inline constexpr std::string_view endpoint_client_mgr = "/kx/ipc/client_mgr";
inline constexpr std::string_view endpoint_captive_app = "/kx/ipc/captive_app";
inline constexpr std::string_view endpoint_hostapd = "/kx/radio/hostapd";
inline constexpr std::string_view endpoint_sysmon = "/kx/ipc/sysmon";
// Of apd and of radiod, see wire/home_questions.h.
inline constexpr std::string_view endpoint_homes = "/kx/ipc/homes";
inline constexpr std::string_view endpoint_radiod = "/kx/radio/radiod";
// A SOCK_SEQPACKET listener of apd, see wire/apcomm_channel.h.
inline constexpr std::string_view endpoint_apcomm = "/kx/ipc/apcomm";

}  // namespace kx

#endif
