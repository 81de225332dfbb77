#include "kx/kx_node.h"

#include "platform/linux/config_cache.h"

int kx_get_node_radio_mac_addr(char *text, uint32_t text_len, uint32_t radio) {
    const kx::ap_config *config = radio == 0 ? kx::current_ap_config() : nullptr;
    if (config == nullptr) {
        return -1;
    }
    std::string mac = kx::format_mac(config->mac);
    if (mac.size() >= text_len) {
        return -1;
    }
    text[mac.copy(text, text_len - 1)] = '\0';
    return 0;
}
