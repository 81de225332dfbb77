// The site controller's configuration file.
#include "controller/site_config.h"

#include <gtest/gtest.h>

#include <fstream>

#include "common/toml_table.h"
#include "tests/unit/certificates.h"

namespace {

struct site_config : testing::Test {
    temporary_directory directory;

    controller::options load(const std::string &text) const {
        std::ofstream(file()) << text;
        return controller::load_site_config(file());
    }
    std::string file() const { return directory.file("site.toml"); }

    // What follows the file's name in the error.
    std::string error_of(const std::string &text) const {
        try {
            load(text);
        } catch (const kx::config_error &error) {
            const std::string what = error.what();
            EXPECT_TRUE(what.starts_with(file() + ':')) << what;
            return what.substr(file().size() + 1);
        }
        return "no error";
    }
};

TEST_F(site_config, has_every_option) {
    const auto found = load(R"([controller]
listen = "0.0.0.0:7443"
port_file = "/run/port"
ca = "ca.pem"
certificate = "own.pem"
key = "own.key"
crl = "revoked.pem"
control = "/run/control"
acl = "acl.toml"
passive = true
[output]
json = true
events = true
[store]
file = "site.db"
key = "store.key"
set_aside = true
history_days = 7
history_size = 16
[http]
listen = "[::1]:8443"
port_file = "http.port"
certificate = "http.pem"
key = "http.key"
[enrolment]
serve_unenrolled = true
authority_key = "authority.key"
address = "ctrl.example"
days = 90
)");
    const auto place = [this](const char *name) { return directory.file(name); };
    EXPECT_EQ(found.config, file());
    EXPECT_EQ(found.listen, "0.0.0.0:7443");
    EXPECT_EQ(found.port_file, "/run/port");
    EXPECT_EQ(found.ca, place("ca.pem"));
    EXPECT_EQ(found.certificate, place("own.pem"));
    EXPECT_EQ(found.key, place("own.key"));
    EXPECT_EQ(found.revoked, place("revoked.pem"));
    EXPECT_EQ(found.control, "/run/control");
    EXPECT_EQ(found.acl, place("acl.toml"));
    EXPECT_TRUE(found.passive && found.json && found.events);
    const controller::store_options store{.file = place("site.db"),
                                          .key_file = place("store.key"),
                                          .set_aside = true,
                                          .history_days = 7,
                                          .history_mib = 16};
    EXPECT_EQ(found.store, store);
    const controller::http_options http{.listen = "[::1]:8443",
                                        .port_file = place("http.port"),
                                        .certificate = place("http.pem"),
                                        .key = place("http.key")};
    EXPECT_EQ(found.http, http);
    const controller::enrolment_options enrolment{
        .serve_unenrolled = true, .authority_key = place("authority.key"), .address = "ctrl.example", .days = 90};
    EXPECT_EQ(found.enrolment, enrolment);
}

TEST_F(site_config, leaves_defaults_where_it_says_nothing) {
    const auto found = load("");
    EXPECT_EQ(found.listen, "127.0.0.1:7443");
    EXPECT_EQ(found.store, controller::store_options{});
    EXPECT_EQ(found.http, controller::http_options{});
}

TEST_F(site_config, names_the_line_of_what_it_cannot_use) {
    EXPECT_EQ(error_of("[controler]\n"),
              "1: controler: unknown key; expected one of controller, output, store, http, enrolment");
    EXPECT_EQ(error_of("[store]\n\nsize = 3\n").substr(0, 24), "3: store.size: unknown k");
    EXPECT_EQ(error_of("[controller]\nlisten = \"localhost\"\n"),
              "2: controller.listen: expected an address and a port such as \"127.0.0.1:7443\"");
    EXPECT_EQ(error_of("[store]\nhistory_days = 0\n"), "2: store.history_days: expected an integer from 1 to 3650");
    EXPECT_EQ(error_of("[output]\njson = \"yes\"\n"), "2: output.json: expected true or false");
    EXPECT_EQ(error_of("[http]\nkey = \"\"\n"), "2: http.key: expected a file name");
    EXPECT_EQ(error_of("[enrolment]\naddress = \"a b\"\n"), "2: enrolment.address: expected a host name or address");
    EXPECT_EQ(error_of("http = 1\n"), "1: http: expected a table");
}

}  // namespace
