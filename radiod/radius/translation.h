// 802.1X packets on their way between hostapd and a server, which have different secrets.
#ifndef RADIOD_RADIUS_TRANSLATION_H
#define RADIOD_RADIUS_TRANSLATION_H

#include "radiod/radius/hidden_key.h"
#include "radiod/radius/packet.h"
#include "radiod/radius/vlan.h"

namespace radiod::radius {

// A request between two peers, as they identify and sign it.
struct leg {
    std::uint8_t identifier;
    authenticator request;
    bytes secret;
};

// Whether the request carries EAP and no password beside it (RFC 3579, 3.3).
bool is_eap(const packet &request);

// hostapd's request as the server gets it. None when it becomes too long.
std::optional<datagram> translate_request(const packet &request, const leg &server);

// A server's answer as hostapd gets it: MS-MPPE keys are hidden with hostapd's secret, and what else is hidden with the
// server's secret is left out. Puts the first MS-MPPE-Recv-Key, which is the one that hostapd takes, into
// `receive_key`; it stays empty when the answer has none. An Access-Accept gets the VLAN `vlan` instead of the
// server's; without `vlan` the server's stays. None when a key or a Microsoft attribute is malformed, or the answer
// becomes too long.
std::optional<datagram> translate_answer(const packet &answer, const leg &server, const leg &hostapd,
                                         clear_key &receive_key, std::optional<std::uint16_t> vlan = {});

}  // namespace radiod::radius

#endif
