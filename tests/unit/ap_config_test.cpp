#include "common/ap_config.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "tests/unit/private_root.h"

namespace {

constexpr char ap[] = "[ap]\nmac = \"02:00:00:00:10:00\"\n";
constexpr char controller[] =
    "[controller]\naddress = \"127.0.0.1\"\nport = 7443\nca = \"ca.pem\"\ncertificate = \"/etc/ap.pem\"\n"
    "key = \"../ap.key\"\n";
constexpr char vap[] = "[[vap]]\nifname = \"wlan0\"\nssid = \"office\"\nvlan = 10\n";

// The lines of `ap` and `controller` are 1 to 8, that of [[vap]] is 9.
std::string with_vap(const std::string &lines) { return std::string(ap) + controller + "[[vap]]\n" + lines; }

}  // namespace

class ap_config : public private_root {
protected:
    kx::ap_config load(const std::string &text) { return kx::load_ap_config(write_file("ap.toml", text)); }

    // The text of the file's error after the file's name.
    std::string error_of(const std::string &text) {
        std::string file = write_file("ap.toml", text);
        try {
            kx::load_ap_config(file);
        } catch (const kx::config_error &error) {
            std::string line = error.what();
            EXPECT_TRUE(line.starts_with(file + ":")) << line;
            return line.substr(std::min(line.size(), file.size() + 1));
        }
        return "no error";
    }
};

TEST_F(ap_config, reads_every_key) {
    kx::ap_config config = load(with_vap(
        "ifname = \"wlan0.guest1\"\nssid = \"12345678901234567890123456789012\"\nvlan = 4094\nenabled = false\n"
        "guest = true\ncaptive = \"portal\"\nradius_index = 4294967295\nmac_acl_index = 2\nradius_acl_type = 3\n"
        "bssid = \"020000001A0b\"\n"));
    EXPECT_EQ(kx::format_mac(config.mac), "02:00:00:00:10:00");
    EXPECT_EQ(config.controller.address, "127.0.0.1");
    EXPECT_EQ(config.controller.port, 7443);
    EXPECT_EQ(config.controller.ca, root() + "/ca.pem");
    EXPECT_EQ(config.controller.certificate, "/etc/ap.pem");
    EXPECT_EQ(config.controller.key, "/tmp/ap.key");
    ASSERT_EQ(config.vaps.size(), 1u);
    const kx::vap_config &vap0 = config.vaps[0];
    EXPECT_EQ(vap0.ifname, "wlan0.guest1");
    EXPECT_EQ(vap0.ssid, "12345678901234567890123456789012");
    EXPECT_EQ(vap0.vlan, 4094);
    EXPECT_FALSE(vap0.enabled);
    EXPECT_EQ(vap0.vap_attr, 1u);
    EXPECT_EQ(vap0.captive, "portal");
    EXPECT_EQ(vap0.radius_index, 4294967295u);
    EXPECT_EQ(vap0.mac_acl_index, 2u);
    EXPECT_EQ(vap0.radius_acl_type, 3u);
    ASSERT_TRUE(vap0.bssid);
    EXPECT_EQ(kx::format_mac(*vap0.bssid), "02:00:00:00:1a:0b");
}

TEST_F(ap_config, reads_where_metrics_are_served) {
    const std::string rest = std::string(ap) + controller + vap;
    EXPECT_EQ(load(rest + "[metrics]\naddress = \"::1\"\nport = 9465\n").metrics, (kx::metrics_config{"::1", 9465}));
    EXPECT_EQ(load(rest).metrics.address, "");
    EXPECT_EQ(error_of(rest + "[metrics]\naddress = \"hall\"\nport = 1\n"),
              "14: metrics.address: expected an IPv4 or IPv6 address");
}

TEST_F(ap_config, reads_whether_roamed_clients_are_carried) {
    std::string rest = std::string(ap) + controller + vap;
    EXPECT_TRUE(load(rest + "[tunnel]\nenabled = true\n").tunnel.enabled);
    EXPECT_FALSE(load(rest + "[tunnel]\nenabled = false\n").tunnel.enabled);
    EXPECT_EQ(error_of(rest + "[tunnel]\n"), "13: tunnel.enabled: missing; expected true or false");
    EXPECT_EQ(error_of(rest + "[tunnel]\nenabled = true\nkey = 1\n"),
              "15: tunnel.key: unknown key; expected one of enabled, address, mtu");
    EXPECT_EQ(load(rest + "[tunnel]\nenabled = true\naddress = \"10.1.2.3\"\n").tunnel.address, 0x0a010203u);
    EXPECT_EQ(error_of(rest + "[tunnel]\nenabled = true\naddress = \"fd00::1\"\n"),
              "15: tunnel.address: expected an IPv4 address");
    EXPECT_EQ(error_of(rest + "[tunnel]\nenabled = true\naddress = \"0.0.0.0\"\n"),
              "15: tunnel.address: expected an IPv4 address");
}

TEST_F(ap_config, bounds_the_mtu_between_access_points) {
    std::string rest = std::string(ap) + controller + vap + "[tunnel]\nenabled = true\n";
    EXPECT_EQ(load(rest).tunnel.mtu, 1500);
    EXPECT_EQ(load(rest + "mtu = 1330\n").tunnel.mtu, 1330);
    EXPECT_EQ(load(rest + "mtu = 9000\n").tunnel.mtu, 9000);
    for (const char *mtu : {"mtu = 1329\n", "mtu = 9001\n", "mtu = \"1500\"\n"}) {
        EXPECT_EQ(error_of(rest + mtu), "15: tunnel.mtu: expected an integer from 1330 to 9000");
    }
}

TEST_F(ap_config, gives_defaults_to_optional_keys) {
    kx::ap_config config = load(std::string(ap) + controller + vap);
    EXPECT_FALSE(config.tunnel.enabled);
    ASSERT_EQ(config.vaps.size(), 1u);
    kx::vap_config expected;
    expected.ifname = "wlan0";
    expected.ssid = "office";
    expected.vlan = 10;
    EXPECT_TRUE(expected.enabled);
    EXPECT_EQ(config.vaps[0], expected);
}

TEST_F(ap_config, accepts_no_vap_and_at_most_255) {
    EXPECT_TRUE(load(std::string(ap) + controller).vaps.empty());
    EXPECT_TRUE(load("vap = []\n" + std::string(ap) + controller).vaps.empty());
    std::string text = std::string(ap) + controller;
    for (int i = 0; i < 255; i++) {
        text += "[[vap]]\nifname = \"wlan" + std::to_string(i) + "\"\nssid = \"office\"\nvlan = 10\n";
    }
    EXPECT_EQ(load(text).vaps.size(), 255u);
    text += "[[vap]]\nifname = \"wlan255\"\nssid = \"office\"\nvlan = 10\n";
    EXPECT_EQ(error_of(text), "1029: vap: expected at most 255 VAPs");
}

TEST_F(ap_config, reads_a_relative_file_name_from_the_working_directory) {
    std::string before = std::filesystem::current_path();
    load(std::string(ap) + controller);
    std::filesystem::current_path(root());
    kx::ap_config config = kx::load_ap_config("ap.toml");
    std::filesystem::current_path(before);
    EXPECT_EQ(config.controller.ca, root() + "/ca.pem");
}

TEST_F(ap_config, rejects_wrong_tables) {
    EXPECT_EQ(error_of(""), "1: ap: missing; expected a table");
    EXPECT_EQ(error_of("ap = 1\n"), "1: ap: expected a table");
    EXPECT_EQ(error_of(ap), "1: controller: missing; expected a table");
    EXPECT_EQ(error_of(std::string("more = 1\n") + ap + controller),
              "1: more: unknown key; expected one of ap, controller, metrics, radio, tunnel, vap");
    EXPECT_EQ(error_of(std::string(ap) + "max = 1\n" + controller), "3: ap.max: unknown key; expected one of mac");
    EXPECT_EQ(error_of(std::string(ap) + controller + "keys = 1\n"),
              "9: controller.keys: unknown key; expected one of address, port, ca, certificate, key");
    EXPECT_EQ(error_of(std::string(ap) + controller + "[vap]\nifname = \"wlan0\"\n"),
              "9: vap: expected an array of tables, each [[vap]] or {...}");
    EXPECT_EQ(error_of("vap = 1\n" + std::string(ap) + controller),
              "1: vap: expected an array of tables, each [[vap]] or {...}");
}

TEST_F(ap_config, rejects_wrong_values_of_the_access_point) {
    constexpr char expected[] = "2: ap.mac: expected a MAC address such as \"02:00:00:00:10:00\"";
    for (const char *mac : {"\"\"", "\"02:00:00:00:10\"", "\"02:00:00:00:10:00:\"", "\"02:00:00:00:10:0g\"", "7",
                            "\"02-00-00-00-10-00\"", "\":02:00:00:00:10:00\"", "\"02::00:00:00:10:00\""}) {
        EXPECT_EQ(error_of("[ap]\nmac = " + std::string(mac) + "\n" + controller), expected) << mac;
    }
    EXPECT_EQ(error_of("[ap]\n" + std::string(controller)),
              "1: ap.mac: missing; expected a MAC address such as \"02:00:00:00:10:00\"");
}

TEST_F(ap_config, rejects_wrong_values_of_the_controller) {
    auto error = [this](const std::string &line) { return error_of(std::string(ap) + "[controller]\n" + line + "\n"); };
    EXPECT_EQ(error("port = 1"), "3: controller.address: missing; expected a host name or address");
    EXPECT_EQ(error("address = \"\""), "4: controller.address: expected a host name or address");
    EXPECT_EQ(error("address = 1"), "4: controller.address: expected a host name or address");
    std::string address = "address = \"a\"\n";
    EXPECT_EQ(error(address), "3: controller.port: missing; expected an integer from 1 to 65535");
    for (const char *port : {"0", "65536", "-1", "\"7443\"", "1.5", "9223372036854775807"}) {
        EXPECT_EQ(error(address + "port = " + port), "5: controller.port: expected an integer from 1 to 65535");
    }
    std::string needed = address + "port = 1\n";
    EXPECT_EQ(error(needed), "3: controller.ca: missing; expected a file name");
    EXPECT_EQ(error(needed + "ca = \"\""), "6: controller.ca: expected a file name");
    needed += "ca = \"a\"\n";
    EXPECT_EQ(error(needed), "3: controller.certificate: missing; expected a file name");
    EXPECT_EQ(error(needed + "certificate = true"), "7: controller.certificate: expected a file name");
    needed += "certificate = \"b\"\n";
    EXPECT_EQ(error(needed), "3: controller.key: missing; expected a file name");
    EXPECT_EQ(error(needed + "key = []"), "8: controller.key: expected a file name");
}

TEST_F(ap_config, rejects_wrong_values_of_a_vap) {
    std::string name = "ifname = \"wlan0\"\n";
    std::string needed = name + "ssid = \"office\"\nvlan = 10\n";
    constexpr char name_expected[] =
        "expected an interface name of 1 to 12 characters of A-Z a-z 0-9 . _ -, not starting with -";
    EXPECT_EQ(error_of(with_vap("")), std::string("9: vap.ifname: missing; ") + name_expected);
    for (const char *bad : {"\"\"", "\"wlan012345678\"", "\"wlan 0\"", "\"-wlan\"", "\".\"", "\"..\"", "\"a/b\"",
                            "\"a;b\"", "\"a\\u0000b\"", "5"}) {
        EXPECT_EQ(error_of(with_vap("ifname = " + std::string(bad))), std::string("10: vap.ifname: ") + name_expected)
            << bad;
    }
    constexpr char text_expected[] = "expected a text of at most 32 bytes";
    std::string long_text = "\"123456789012345678901234567890123\"";
    EXPECT_EQ(error_of(with_vap(name)), std::string("9: vap.ssid: missing; ") + text_expected);
    EXPECT_EQ(error_of(with_vap(name + "ssid = " + long_text)), std::string("11: vap.ssid: ") + text_expected);
    EXPECT_EQ(error_of(with_vap(name + "ssid = \"a\\u0000b\"")), std::string("11: vap.ssid: ") + text_expected);
    EXPECT_EQ(error_of(with_vap(needed + "captive = " + long_text)), std::string("13: vap.captive: ") + text_expected);

    constexpr char vlan_expected[] = "expected an integer from 0 to 4094";
    EXPECT_EQ(error_of(with_vap(name + "ssid = \"\"")), std::string("9: vap.vlan: missing; ") + vlan_expected);
    for (const char *vlan : {"-1", "4095", "\"10\"", "1.0"}) {
        EXPECT_EQ(error_of(with_vap(name + "ssid = \"\"\nvlan = " + vlan)),
                  std::string("12: vap.vlan: ") + vlan_expected)
            << vlan;
    }
    EXPECT_EQ(error_of(with_vap(needed + "enabled = 1")), "13: vap.enabled: expected true or false");
    EXPECT_EQ(error_of(with_vap(needed + "guest = \"yes\"")), "13: vap.guest: expected true or false");
    for (std::string key : {"radius_index", "mac_acl_index", "radius_acl_type"}) {
        for (const char *value : {"-1", "4294967296", "true"}) {
            EXPECT_EQ(error_of(with_vap(needed + key + " = " + value)),
                      "13: vap." + key + ": expected an integer from 0 to 4294967295");
        }
    }
    EXPECT_EQ(error_of(with_vap(needed + "bssid = \"wlan\"")),
              "13: vap.bssid: expected a MAC address such as \"02:00:00:00:10:00\"");
    EXPECT_EQ(error_of(with_vap(needed + "hidden = true")),
              "13: vap.hidden: unknown key; expected one of ifname, ssid, vlan, enabled, guest, captive, radius_index, "
              "mac_acl_index, radius_acl_type, fetch_pmk, bssid");
    EXPECT_EQ(error_of(with_vap(needed) + vap), "14: vap.ifname: expected a name that no other VAP has, not \"wlan0\"");
}

TEST_F(ap_config, rejects_files_it_cannot_read) {
    EXPECT_TRUE(error_of("[ap\nmac = 1\n").starts_with("1: not TOML: ")) << error_of("[ap\nmac = 1\n");
    EXPECT_TRUE(error_of("[ap]\nmac = \"\xff\"\n").starts_with("2: not TOML: "));

    auto error = [](const std::string &file) -> std::string {
        try {
            kx::load_ap_config(file);
        } catch (const kx::config_error &failure) {
            return failure.what();
        }
        return "no error";
    };
    EXPECT_EQ(error(root() + "/none"), root() +
                                           "/none: No such file or directory; the access point's configuration "
                                           "was expected here");
    EXPECT_EQ(error(root()), root() + ": a regular file was expected");
    std::string pipe = root() + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(error(pipe), pipe + ": a regular file was expected");
}

TEST_F(ap_config, errors_of_size) {
    const std::string text = std::string(ap) + controller;
    EXPECT_TRUE(load(text + std::string(65536 - text.size(), '\n')).vaps.empty());
    EXPECT_EQ(error_of("\n\n" + std::string(65535, '#')), "3: a file of at most 64 KiB was expected");
}

TEST_F(ap_config, errors_of_depth) {
    constexpr char expected[] = "expected tables and arrays nested at most 16 deep";
    auto repeated = [](std::string_view part, std::size_t times) {
        std::string joined;
        for (std::size_t i = 0; i < times; i++) {
            joined += part;
        }
        return joined;
    };
    for (std::string_view part : {"a.", "\"a\".", "'a' .\t", "\"\\\".\"."}) {
        EXPECT_EQ(error_of("\n" + repeated(part, 16) + "a = 1\n"), std::string("2: ") + expected) << part;
        EXPECT_EQ(error_of("[" + repeated(part, 60000 / part.size()) + "a]\n"), std::string("1: ") + expected) << part;
        EXPECT_EQ(error_of("\n" + repeated(part, 15) + "a = 1\n").find(expected), std::string::npos) << part;
    }
    EXPECT_EQ(error_of("a = [\n" + repeated("[", 16)), std::string("2: ") + expected);
    EXPECT_EQ(error_of("a = " + repeated("{ a = ", 17)), std::string("1: ") + expected);
    const std::string deep = repeated("a.", 16) + "a = 1\n";
    EXPECT_EQ(error_of("a = \"\"\"\n\"\\\"\"\"\"\"\n" + deep), std::string("3: ") + expected);
    EXPECT_EQ(error_of("a = '''\n\\'''\n" + deep), std::string("3: ") + expected);
}

TEST_F(ap_config, texts_and_comments_may_have_any_dots_and_brackets) {
    const std::string dots = "[[[[[[[[[[{{{{{{{{{{................";
    std::string text = std::string(ap) + controller;
    text.replace(text.find("ca.pem"), 6, dots);
    EXPECT_EQ(load("# " + dots + "\n" + text).controller.ca, root() + "/" + dots);
    text.replace(text.find('"' + dots + '"'), dots.size() + 2, "'''" + dots + "'''");
    EXPECT_EQ(load(text).controller.ca, root() + "/" + dots);
}
