#include "common/radio_config.h"

#include "common/ap_config.h"
#include "tests/unit/private_root.h"

namespace {

using namespace std::chrono_literals;

constexpr char rest[] =
    "[ap]\nmac = \"02:00:00:00:10:00\"\n[controller]\naddress = \"127.0.0.1\"\nport = 7443\nca = \"ca.pem\"\n"
    "certificate = \"ap.pem\"\nkey = \"ap.key\"\n";

}  // namespace

class radio_config : public private_root {
protected:
    kx::radio_config load(const std::string &table) {
        return kx::load_ap_config(write_file("ap.toml", table + rest)).radio;
    }
    // The text of the file's error after the file's name.
    std::string error_of(const std::string &table) {
        const std::string file = write_file("ap.toml", table + rest);
        try {
            kx::load_ap_config(file);
        } catch (const kx::config_error &error) {
            return std::string(error.what()).substr(file.size() + 1);
        }
        return "no error";
    }
};

TEST_F(radio_config, has_a_default_for_everything) {
    const kx::radio_config made = load("");
    EXPECT_EQ(made, kx::radio_config());
    EXPECT_EQ(load("[radio]\n"), made);
    EXPECT_EQ(made.hostapd_directory, "/var/run/hostapd");
    EXPECT_EQ(made.radius_port, 1812);
    EXPECT_EQ(made.hold, 120ms);
    EXPECT_FALSE(made.allows_without_verdict);
}

TEST_F(radio_config, reads_every_key) {
    const kx::radio_config config = load(
        "[radio]\nhostapd_directory = \"/run/hostapd\"\nradius_port = 18120\nradius_secret_file = \"hostapd.secret\"\n"
        "hold_ms = 80\nacl_fallback = \"allow\"\n"
        "[[radio.radius_server]]\naddress = \"10.0.0.1\"\nsecret_file = \"/etc/first\"\n"
        "[[radio.radius_server]]\naddress = \"fd00::1\"\nport = 1645\nsecret_file = \"second\"\n");
    EXPECT_EQ(config.hostapd_directory, "/run/hostapd");
    EXPECT_EQ(config.radius_port, 18120);
    EXPECT_EQ(config.radius_secret_file, root() + "/hostapd.secret");
    EXPECT_EQ(config.hold, 80ms);
    EXPECT_TRUE(config.allows_without_verdict);
    ASSERT_EQ(config.radius_servers.size(), 2u);
    EXPECT_EQ(config.radius_servers[0],
              (kx::radius_server_config{.address = "10.0.0.1", .port = 1812, .secret_file = "/etc/first"}));
    EXPECT_EQ(config.radius_servers[1],
              (kx::radius_server_config{.address = "fd00::1", .port = 1645, .secret_file = root() + "/second"}));
}

TEST_F(radio_config, rejects_wrong_values) {
    const std::string table = "[radio]\n", server = "[[radio.radius_server]]\n";
    EXPECT_EQ(error_of("radio = 1\n"), "1: radio: expected a table");
    EXPECT_EQ(
        error_of(table + "hold = 1\n"),
        "2: radio.hold: unknown key; expected one of hostapd_directory, radius_port, radius_secret_file, hold_ms, "
        "acl_fallback, radius_server");
    EXPECT_EQ(error_of(table + "hold_ms = 19\n"), "2: radio.hold_ms: expected an integer from 20 to 1000");
    EXPECT_EQ(error_of(table + "hold_ms = 1001\n"), "2: radio.hold_ms: expected an integer from 20 to 1000");
    EXPECT_EQ(error_of(table + "radius_port = 0\n"), "2: radio.radius_port: expected an integer from 1 to 65535");
    EXPECT_EQ(error_of(table + "acl_fallback = \"maybe\"\n"), "2: radio.acl_fallback: expected \"deny\" or \"allow\"");
    EXPECT_EQ(error_of(table + "acl_fallback = true\n"), "2: radio.acl_fallback: expected \"deny\" or \"allow\"");
    EXPECT_EQ(error_of(server + "address = \"radius.example\"\nsecret_file = \"a\"\n"),
              "2: radius_server.address: expected a numeric IPv4 or IPv6 address");
    EXPECT_EQ(error_of(server + "address = \"10.0.0.1\"\n"),
              "1: radius_server.secret_file: missing; expected a file name");
}

TEST_F(radio_config, takes_at_most_four_servers) {
    std::string text;
    for (int i = 0; i < 4; i++) {
        text += "[[radio.radius_server]]\naddress = \"10.0.0.1\"\nsecret_file = \"a\"\n";
    }
    EXPECT_EQ(load(text).radius_servers.size(), 4u);
    text += "[[radio.radius_server]]\naddress = \"10.0.0.1\"\nsecret_file = \"a\"\n";
    EXPECT_EQ(error_of(text), "13: radius_server: expected at most 4 RADIUS servers");
}
