#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <string>

#include "arrange.h"
#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/dispatch/local_dispatch.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/neighbours/driver.h"
#include "kx/kx_log.h"
#include "sim_test.h"

namespace sim {
namespace {

// A log file on disk in place of the simulated one.
class log_file {
public:
    log_file() : log_file(tmpfile()) {}
    explicit log_file(FILE *opened) : file(opened) { log_file_name = file; }
    ~log_file() {
        log_file_name = nullptr;
        fclose(file);
    }
    log_file(const log_file &) = delete;
    log_file &operator=(const log_file &) = delete;

    // The content of the file, without what the stream still buffers.
    std::string content() const {
        struct stat st;
        fstat(fileno(file), &st);
        std::string text(static_cast<size_t>(st.st_size), '\0');
        text.resize(static_cast<size_t>(pread(fileno(file), text.data(), text.size(), 0)));
        return text;
    }

private:
    FILE *file;
};

// Messages of known level and text, without arguments and with one.
void event() { client_mgr_sys_ready_rcvd(); }
void event_of(uint32_t ip) { client_mgr_apcomm_ctrl_status(ip, 1); }

const std::string EVENT = "Received System Ready";
const std::string EVENT_OF_7 = "client_mgr_apcomm_ctrl_status: Rcvd tunl status up. ctrl ip = 0x00000007";

}  // namespace

TEST(log, writes_a_colon_seconds_milliseconds_and_the_text) {
    site sim(3);
    const log_file file;
    sim.set_clock(1234567890, 7);
    event();
    EXPECT_EQ(":1234567890:7: " + EVENT + "\n", file.content());
    sim.set_clock(1234567890, 999);
    event_of(7);
    EXPECT_EQ(":1234567890:7: " + EVENT + "\n:1234567890:999: " + EVENT_OF_7 + "\n", file.content());
    sim.check_end();
}

TEST(log, cuts_the_time_to_milliseconds) {
    site sim(3);
    const log_file file;
    sim.wall_usecs = 12345999999;
    event();
    EXPECT_EQ(":12345:999: " + EVENT + "\n", file.content());
    sim.check_end();
}

TEST(log, counts_every_byte_written) {
    site sim(3);
    const log_file file;
    cur_log_size = 1000;
    event();
    EXPECT_EQ(1000 + file.content().size(), cur_log_size);
    event_of(7);
    EXPECT_EQ(1000 + file.content().size(), cur_log_size);
    sim.check_end();
}

TEST(log, starts_the_file_again_past_its_maximum) {
    site sim(3);
    const log_file file;
    sim.set_clock(1111111111, 111);
    event_of(7);
    const std::string old = file.content();
    kx_log_conf_data.max_file_size = cur_log_size - 1;
    sim.set_clock(1333333333, 222);
    event();
    const std::string line = ":1333333333:222: " + EVENT + "\n";
    // The file is not truncated: the end of the old line follows the new one.
    EXPECT_EQ(line + old.substr(line.size()), file.content());
    EXPECT_EQ(line.size(), cur_log_size);
    sim.check_end();
}

TEST(log, goes_on_in_a_file_of_exactly_its_maximum) {
    site sim(3);
    const log_file file;
    event();
    const size_t first_line = file.content().size();
    kx_log_conf_data.max_file_size = cur_log_size;
    event();
    EXPECT_EQ(2 * first_line, file.content().size());
    EXPECT_EQ(2 * first_line, cur_log_size);
    sim.check_end();
}

TEST(log, loses_only_the_line_on_a_full_disk) {
    site sim(3);
    const log_file file(fopen("/dev/full", "w"));
    kx_log_conf_data.console = 1;
    sim.set_clock(1234567890, 7);
    event();
    sim.expect({console(3, EVENT)});
    EXPECT_EQ((":1234567890:7: " + EVENT + "\n").size(), cur_log_size);
    sim.check_end();
}

TEST(log, compares_sizes_unsigned) {
    site sim(3);
    cur_log_size = 0x80000000;
    kx_log_conf_data.max_file_size = 0x7fffffff;
    event();
    sim.expect({did("log rewound"), log(3, EVENT)});
    cur_log_size = 0x7fffffff;
    kx_log_conf_data.max_file_size = 0x80000000;
    event();
    sim.expect({log(3, EVENT)});
    sim.check_end();
}

TEST(log, keeps_one_line_with_a_maximum_of_0) {
    site sim(3);
    kx_log_conf_data.max_file_size = 0;
    event();
    event();
    sim.expect({log(3, EVENT), did("log rewound"), log(3, EVENT)});
    sim.check_end();
}

TEST(log, evaluates_no_argument_of_a_message_above_the_level) {
    site sim(3);
    kx_log_conf_data.console = 1;
    kx_log_conf_data.max_file_size = 10;
    cur_log_size = 11;
    for (int level : {2, 0, -1, INT_MIN}) {
        kx_log_conf_data.level = level;
        event();
        sim.expect_nothing();
        EXPECT_EQ(11U, cur_log_size);
    }
    sim.check_end();
}

TEST(log, writes_all_messages_at_a_level_above_theirs) {
    site sim(3);
    kx_log_conf_data.level = INT_MAX;
    event();
    sim.expect({log(3, EVENT)});
    sim.check_end();
}

SIM_TEST(log, writes_the_same_message_to_the_console_without_prefix) {
    kx_log_conf_data.console = 1;
    event();
    event_of(7);
    sim.expect({log(3, EVENT), console(3, EVENT), log(3, EVENT_OF_7), console(3, EVENT_OF_7)});
}

SIM_TEST(log, writes_to_the_console_with_any_flag_but_0) {
    kx_log_conf_data.console = 0x80000000;
    event();
    sim.expect({log(3, EVENT), console(3, EVENT)});
}

SIM_TEST(log, writes_to_the_console_without_a_file) {
    log_file_name = nullptr;
    cur_log_size = 5;
    kx_log_conf_data.max_file_size = 1;
    kx_log_conf_data.console = 1;
    event();
    sim.expect({console(3, EVENT)});
    EXPECT_EQ(5U, cur_log_size);
}

SIM_TEST(log, does_nothing_without_file_and_console) {
    log_file_name = nullptr;
    event();
    sim.expect_nothing();
}

SIM_TEST(log, keeps_the_console_line_when_the_file_is_rewound) {
    kx_log_conf_data.console = 1;
    kx_log_conf_data.max_file_size = 4;
    cur_log_size = 5;
    if (sim.log_level < 3) {
        return;
    }
    event();
    sim.expect({did("log rewound"), log(3, EVENT), console(3, EVENT)});
}

SIM_TEST(log, never_takes_an_argument_for_a_format) {
    kx_log_conf_data.console = 1;
    uint8_t bssid[6];
    client_mgr_get_bssid(bssid, "%s%n%d%%");
    sim.expect({did("socket"), did(ioctl_text(0x8927, "%s%n%d%%", "") + " = -1"),
                log(1, "Error obtaining the BSSID for %s%n%d%%"), console(1, "Error obtaining the BSSID for %s%n%d%%"),
                did("close")});
}

SIM_TEST(log, writes_a_line_at_its_level_and_above) {
    g_cfg.status_flags = 0;
    sim.local(KX_MSG_ID_VAP_INIT, {});  // one line of level 4, one more, one of level 3, one of level 1
    sim.expect({log(4, "Received Msg ID : 60"), log(4, "Notification message"), log(3, "Initializing vap config"),
                log(1, "Not yet ready to talk to controller")});
}

}  // namespace sim
