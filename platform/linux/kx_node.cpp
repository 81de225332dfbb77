#include "kx/kx_node.h"

#include "common/ap_config.h"
#include "common/paths.h"
#include "platform/linux/start_failure.h"

// Reads the file itself. The cache reports errors in the system log alone, and the daemon, which does not start without
// this address, has to report them on standard error as well.
int kx_get_node_radio_mac_addr(char *text, uint32_t text_len, uint32_t radio) {
    if (radio != 0) {
        return -1;
    }
    try {
        std::string mac = kx::format_mac(kx::load_ap_config(kx::config_file()).mac);
        if (mac.size() >= text_len) {
            return -1;
        }
        text[mac.copy(text, text_len - 1)] = '\0';
        return 0;
    } catch (const kx::config_error &error) {
        kx::report_start_failure(error.what());
        return -1;
    }
}
