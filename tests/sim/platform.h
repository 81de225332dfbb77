// The simulated platform: the whole contract in process, on virtual time. It records what the daemon does, in order,
// and answers as the test arranged.
#ifndef TESTS_SIM_PLATFORM_H
#define TESTS_SIM_PLATFORM_H

#include <unistd.h>

#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "bytes.h"
#include "kx/apcfg.h"
#include "kx/apcomm.h"
#include "kx/kx_eloop.h"
#include "kx/kx_ipc.h"

namespace sim {

constexpr size_t IPC_HDR_SIZE = 12;

// How client_mgr_main came back.
struct ending {
    bool exited;  // by exit()
    int status;
};

// One interface of the access point's configuration.
struct listed_vap {
    std::string ifname;  // as listed, up to 12 characters
    apcfg_vap record = {};
    bool readable = true;  // apcfg has a record of it
};

class platform {
public:
    // One platform lives at a time. It starts the daemon's state afresh, as if start-up had just ended: log and
    // endpoint open, console off, tables empty, g_cfg zero but for the access point's MAC address.
    explicit platform(int log_level);
    ~platform();
    platform(const platform &) = delete;
    platform &operator=(const platform &) = delete;

    // --- the world, for tests to arrange

    std::string radio_mac = "a0:a1:a2:a3:a4:a5";
    std::vector<listed_vap> vaps;
    std::map<std::string, bytes> hwaddr;    // of the interfaces that have one
    std::map<std::string, bytes> stations;  // the driver's station list, by interface
    bytes log_cfg;                          // what KX_LOG_GET_CFG writes
    std::function<void()> running;          // runs inside kx_eloop_run, which then returns
    uid_t user = geteuid();                 // whom the daemon takes itself for

    // The Nth call of `call` from now on (1 is the next), or every one from the Nth, does nothing and returns `result`.
    // A rule that never came to bear is a complaint.
    void fail_nth(std::string_view call, unsigned n, int result = -1);
    void fail_from(std::string_view call, unsigned n, int result = -1);
    // Ends all rules, as the end of the test does.
    void end_rules();
    // Runs `what` at every call of `call`, before the call does anything. "log" is a line written to the log, "open"
    // the dump file's opening, "write" a write to it.
    void on(std::string_view call, std::function<void()> what);

    // --- time

    int64_t wall_secs() const { return wall_usecs / 1000000; }
    void set_clock(int64_t secs, int msecs = 0) { wall_usecs = secs * 1000000 + int64_t{msecs} * 1000; }
    // Lets time pass; timers run when they are due.
    void advance(unsigned secs);

    // --- events

    ending main();
    // Without catching exit().
    void main_until_exit();
    // A local message of flags 1 (notification) or with bit 2 (request).
    void local(uint32_t id, const bytes &payload, uint32_t flags = KX_IPC_FLAG_NOTIFICATION);
    // A message from the controller.
    void controller(const bytes &msg);
    void controller_status(uint32_t ip, uint32_t status);

    // --- results

    const int log_level;
    std::vector<std::string> effects;     // since the last look
    std::vector<std::string> complaints;  // breaches of the contract
    // Effects up to now, output without a newline included; what the daemon has not flushed is not to be seen yet.
    std::vector<std::string> take_effects();
    // The file that the daemon opens as "/tmp/clientmgr_cli", in a directory of this platform's own.
    const std::string &dump_path();

    // --- for the contract's functions

    static platform *current;
    void record(const std::string &what) { effects.push_back(what); }
    void complain(const std::string &what) { complaints.push_back(what); }
    // Counts a call. The result a rule wants, or `normal`.
    int outcome(std::string_view call, int normal);
    // The same, and records the effect with a result that is not the normal one.
    int recorded(std::string_view call, const std::string &what, int normal);

    kx_ipc_handle endpoint;
    uint8_t *rx_buf;
    uint32_t rx_buf_len;
    kx_ipc_recv_handler recv;
    kx_ipc_rx *answering = nullptr;  // the request being handled
    apcomm_recv_handler controller_recv;
    apcomm_status_handler controller_status_cb;
    void *hostapd_connection = nullptr;
    int64_t wall_usecs;
    int64_t mono_usecs = 5000000;
    void arm(int64_t delay_usecs, kx_eloop_timeout_handler handler, void *ctx1, void *ctx2);
    void open_log();
    void open_endpoint();
    [[noreturn]] void leave_main(int status);
    bool inside_main = false;

    int open_socket();
    bool is_open(int fd) const;
    size_t open_sockets() const { return sockets.size(); }
    void close_socket(int fd);

private:
    struct rule {
        std::string call;
        unsigned nth;
        bool onwards;
        int result;
        unsigned calls;
        bool fired;
    };
    struct timer {
        int64_t due;
        kx_eloop_timeout_handler handler;
        void *ctx1;
        void *ctx2;
    };

    bool write_log(std::string_view chunk);
    void write_console(std::string_view chunk);
    void close_log();
    static ssize_t log_written(void *self, const char *data, size_t len);
    static int log_seeked(void *self, off64_t *offset, int whence);
    static ssize_t console_written(void *self, const char *data, size_t len);

    std::vector<rule> rules;
    std::map<std::string, std::function<void()>, std::less<>> hooks;
    std::vector<timer> timers;
    std::vector<int> sockets;
    FILE *log_stream = nullptr;
    char log_room[4096];
    char console_room[4096];
    FILE *real_stdout;
    std::string console_line;
    std::string dump_file;
    jmp_buf leave;
    int exit_status = 0;
    ending end = {};

public:
    // Standard output is the daemon's while a platform lives; a report of the test runner goes to the real one.
    void lend_stdout();
    void take_stdout();
    // Complaints that only the end of a test can bring.
    void finish();
};

}  // namespace sim

#endif
