// The current configuration file, which is read again only after a change.
#ifndef KX_LINUX_CONFIG_CACHE_H
#define KX_LINUX_CONFIG_CACHE_H

#include "common/ap_config.h"

namespace kx {

// The configuration in config_file(), valid until the next call. Null when the file cannot be read or has an error,
// which is written to the system log once for each state of the file.
const ap_config *current_ap_config();

}  // namespace kx

#endif
