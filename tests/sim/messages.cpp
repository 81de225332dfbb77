#include "messages.h"

namespace sim {

bytes association_payload(const bytes &mac, const bytes &bssid) { return zeros(16) + mac + bssid + zeros(4); }

bytes foreign_association_payload(const bytes &mac, const bytes &bssid, const bytes &last_bssid) {
    return zeros(16) + mac + bssid + last_bssid + zeros(4);
}

bytes client_ip_payload(const bytes &mac, const bytes &ip, std::string_view ifname) {
    return mac + zeros(2) + ip + padded(ifname, ifname.size() + 1);
}

bytes pmk_payload(uint32_t sub_type, const bytes &bssid, const bytes &previous_bssid, const bytes &mac,
                  const bytes &pmk) {
    return big32(sub_type) + bssid + previous_bssid + mac + pmk;
}

bytes acl_payload(const bytes &mac, const bytes &bssid, const bytes &data) {
    return mac + bssid + big32(static_cast<uint32_t>(data.size())) + data;
}

bytes ctrlr_record(uint8_t type, const bytes &body) {
    return bytes{type, 4} + big16(static_cast<uint16_t>(4 + body.size())) + body;
}

bytes ctrlr_message(std::initializer_list<bytes> records) {
    bytes all;
    for (const bytes &record : records) {
        all = all + record;
    }
    return hex("01 0e 00") + big16(static_cast<uint16_t>(records.size())) + hex("00") +
           big16(static_cast<uint16_t>(14 + all.size())) + hex("909192939495") + all;
}

bytes one_record(uint8_t type, const bytes &body) { return ctrlr_message({ctrlr_record(type, body)}); }

bytes client_entry(const bytes &mac, const bytes &home_bssid, const bytes &bssid, uint32_t home_vlan, const bytes &ip,
                   const bytes &pmk, uint32_t flags) {
    return mac + home_bssid + bssid + big32(home_vlan) + ip + pmk + big32(flags);
}

bytes acl_verdict_body(uint32_t verdict, const bytes &mac, const bytes &bssid, const bytes &data) {
    return big32(verdict) + mac + bssid + zeros(22) + big32(static_cast<uint32_t>(data.size())) + data;
}

bytes station_record(const bytes &mac) { return host16(156) + zeros(14) + mac + zeros(134); }

}  // namespace sim
