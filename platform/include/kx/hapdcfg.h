/* hostapd's control service. One connection carries one command:
 *
 *   offset  width  field
 *   0       4      command code, big-endian; 9: client information
 *   4       54     for code 9, the PMK message of local message 150
 *   58      1038   zero */
#ifndef KX_HAPDCFG_H
#define KX_HAPDCFG_H

#ifdef __cplusplus
extern "C" {
#endif

#define HOSTAPD_CONFIG_CTX_SIZE 224
#define HOSTAPD_CONFIG_CMD_SIZE 1096

/* `ctx` is memory of the caller that holds the connection: HOSTAPD_CONFIG_CTX_SIZE zeroed bytes, aligned for any type.
 * `client_name` is the name of the caller, `flags` is 0. Returns 0, or a negative value when hostapd cannot be reached.
 */
int hostapd_config_open_connection(void *ctx, const char *client_name, int flags);

/* Sends HOSTAPD_CONFIG_CMD_SIZE bytes, at any address, to hostapd. Never blocks. Returns 0, or a negative value when
 * they could not be sent. */
int hostapd_config_send_command(const void *cmd, void *ctx);

/* Ends the connection. Called once for every successful open. Returns 0, or a negative value. */
int hostapd_config_close_connection(void *ctx);

#ifdef __cplusplus
}
#endif
#endif
