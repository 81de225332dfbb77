// The controller's state as pages of rows, for operators and HTTP clients. The work for a page depends neither on the
// number of access points nor on that of stations. A page of rows that are rare may therefore be short or empty, and
// have a next one all the same.
#ifndef CONTROLLER_LISTINGS_H
#define CONTROLLER_LISTINGS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "controller/access_points.h"
#include "controller/enrolments.h"
#include "controller/listing_queries.h"
#include "controller/mac_acl.h"
#include "controller/site_tables.h"

namespace controller {

template <class Row>
struct page {
    std::vector<Row> rows;  // in the order of their keys, or against it
    std::string next;       // the cursor of the next page; empty after the last one
};

// A VAP with the names of its parts. A name that is not known is empty.
struct named_place {
    place where;
    std::string ap_name;
    std::string ssid;  // any bytes, without padding
};

named_place name_place(const site_tables &in, const place &where);

struct client_row {
    mac_address client;
    std::string name;  // that an operator gave; empty for none
    named_place now, home;
    std::optional<std::uint32_t> home_vlan;
    std::uint32_t ip;  // 10.0.0.1 is 0x0a000001; 0 when not known
    guest_state guest;
    bool has_pmk;
};
page<client_row> list_clients(const site_tables &of, const client_query &wanted);
// The client's row; none when it is not on the site.
std::optional<client_row> find_client_row(const site_tables &of, const mac_address &client);

struct vap_row {
    named_place where;
    std::uint32_t vlan;
};
page<vap_row> list_vaps(const site_tables &of, const vap_query &wanted);

struct ap_row {
    mac_address ap;
    std::string name;
    link_state state;
    std::optional<enrolment_state> enrolled;  // none when it is not
    std::optional<access_point_link> link;    // none when it is down
    ap_losses lost;
    std::size_t stations = 0;  // clients that it serves
    std::vector<vap_row> vaps;
};
// `managed` is null when the controller only listens; only access points with a tunnel are listed then.
page<ap_row> list_access_points(const access_points &links, const enrolments &enrolled, const site_tables *managed,
                                const ap_query &wanted);

struct enrolment_row {
    mac_address ap;
    enrolment of;
    link_state link;
};
page<enrolment_row> list_enrolments(const enrolments &of, const access_points &links, const enrolment_query &wanted);

// A default, of the whole site without an index and of a list without a client, or a list's verdict on a client.
struct acl_row {
    std::optional<std::uint32_t> index;
    std::optional<mac_address> client;
    verdict decision;
};
page<acl_row> list_mac_acl(const mac_acl &of, const acl_query &wanted);

}  // namespace controller

#endif
