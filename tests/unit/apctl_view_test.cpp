// What a daemon shows, as its writer makes it and apctl's reader takes it.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "apctl/listings.h"
#include "apctl/texts.h"
#include "apctl/view_reader.h"
#include "common/view_writer.h"

namespace {

using octets = std::vector<std::uint8_t>;

constexpr mac_address anna{2, 0, 0, 0, 0x0a, 1}, office{2, 0, 0, 0, 0x10, 1}, other{2, 0, 0, 0, 0x20, 1};

kx::view_vap vap_of_office() {
    kx::view_vap vap{};
    vap.bssid = office;
    std::strcpy(vap.ssid, "office");
    std::memcpy(vap.ifname, "wlan0-twelve", sizeof(vap.ifname));
    vap.vlan = 10;
    return vap;
}

kx::view_client client_at(const mac_address &bssid, std::uint32_t flags) {
    kx::view_client client{};
    client.client = anna;
    client.bssid = bssid;
    client.flags = flags;
    return client;
}

octets answer() {
    kx::view_writer writer;
    EXPECT_TRUE(writer.put_number("lost.", "no_tunnel", 0x1'0000'0002));
    EXPECT_TRUE(writer.put_text("controller.name", "site"));
    EXPECT_TRUE(writer.put(kx::view_kind::vap, vap_of_office()));
    EXPECT_TRUE(writer.put(kx::view_kind::client, client_at(office, kx::view_flag_local)));
    writer.put_end();
    return {writer.written().begin(), writer.written().end()};
}

TEST(View, is_read_as_it_was_written) {
    apctl::view_reader reader;
    for (const std::uint8_t byte : answer()) {
        EXPECT_FALSE(reader.take());
        reader.feed({&byte, 1});
    }
    const auto got = reader.take();
    ASSERT_TRUE(got);
    EXPECT_EQ(got->number("lost.no_tunnel"), 0x1'0000'0002u);
    EXPECT_EQ(got->number("lost.other"), 0u);
    EXPECT_EQ(got->text("controller.name"), "site");
    ASSERT_EQ(got->vaps.size(), 1u);
    EXPECT_EQ(apctl::ifname_of(got->vaps[0]), "wlan0-twelve");
    EXPECT_EQ(apctl::ssid_of(got->vaps[0]), "office");
    EXPECT_EQ(got->clients.count(anna), 1u);
    EXPECT_FALSE(reader.take());
}

TEST(View, of_random_bytes_is_refused_or_read) {
    std::mt19937 random(1);
    const octets whole = answer();
    for (int i = 0; i < 20000; i++) {
        octets changed(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(random() % (whole.size() + 1)));
        for (unsigned change = random() % 4; change > 0 && !changed.empty(); change--) {
            changed[random() % changed.size()] = static_cast<std::uint8_t>(random());
        }
        apctl::view_reader reader;
        try {
            reader.feed(changed);
            reader.take();
        } catch (const apctl::malformed_view &) {
        }
    }
}

TEST(View, without_an_end_is_refused) {
    kx::view_writer writer;
    while (writer.put_number("n", 1)) {
    }
    apctl::view_reader reader;
    EXPECT_THROW(
        for (int i = 0; i < 1000; i++) { reader.feed(writer.written()); }, apctl::malformed_view);
}

TEST(View, has_room_for_its_end) {
    kx::view_writer writer;
    EXPECT_FALSE(writer.put_text(std::string(65, 'n'), ""));
    EXPECT_FALSE(writer.put_number(std::string(60, 'p'), "rest.", 1));
    EXPECT_FALSE(writer.put_text("n", std::string(kx::view_writer::room, 't')));
    while (writer.put_text("n", "")) {
    }
    EXPECT_GT(writer.written().size() + 6, kx::view_writer::room);
    writer.put_end();
    apctl::view_reader reader;
    reader.feed(writer.written());
    EXPECT_TRUE(reader.take());
}

TEST(View, names_the_states_of_clients) {
    apctl::shown daemon;
    daemon.vaps.push_back(vap_of_office());
    const auto state = [&](const mac_address &bssid, std::uint32_t flags) {
        return std::string(apctl::state_of(daemon, client_at(bssid, flags)));
    };
    EXPECT_EQ(state(office, kx::view_flag_local | kx::view_flag_pmk), "home");
    EXPECT_EQ(state(office, kx::view_flag_foreign), "foreign");
    EXPECT_EQ(state(office, kx::view_flag_foreign | kx::view_flag_tunnel), "tunnelled");
    EXPECT_EQ(state(office, kx::view_flag_local | kx::view_flag_guest), "guest");
    EXPECT_EQ(state(other, kx::view_flag_foreign), "elsewhere");
    EXPECT_EQ(state(mac_address{}, kx::view_flag_local), "elsewhere");
}

TEST(View, of_an_ssid_in_json_is_lossless) {
    apctl::json row;
    apctl::add_ssid(row, "caf\xc3\xa9");
    EXPECT_FALSE(row.contains("ssid_hex"));
    apctl::add_ssid(row, "caf\xe9");
    EXPECT_EQ(row["ssid_hex"], "636166e9");
}

}  // namespace
