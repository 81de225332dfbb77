#include "platform.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/dispatch/ctrlr_dispatch.h"
#include "client_mgr/dispatch/local_dispatch.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/startup.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_tbl.h"
#include "effects.h"
#include "inside.h"
#include "kx/kx_eloop.h"
#include "kx/kx_ipc.h"
#include "kx/kx_log.h"
#include "table_copy.h"

struct kx_ipc {
    int unused;
};

namespace sim {
namespace {

constexpr int FIRST_SOCKET = 1000000;  // the process itself has no such descriptor
constexpr uint32_t MAX_LOG_SIZE = 1u << 30;

kx_ipc the_endpoint;

std::string own_directory() {
    char name[] = "/tmp/client_mgr_sim.XXXXXX";
    if (mkdtemp(name) == nullptr) {
        throw std::runtime_error("no directory of its own below /tmp");
    }
    return name;
}

// The tables are made empty once: fuzzing and emulated machines need it often and quickly.
void fresh_daemon() {
    static table_copy<client_info> no_clients;
    static table_copy<acl_cache_entry> no_verdicts;
    g_cfg = {};
    if (no_clients.is_taken()) {
        no_clients.put_back();
        no_verdicts.put_back();
    } else {
        client_tbl_init();
        client_mgr_acl_cache_init();
        no_clients.take();
        no_verdicts.take();
    }
    g_cfg.ap_mac = {0xa0, 0xa1, 0xa2, 0xa3, 0xa4, 0xa5};
}

bool all_zero(const uint8_t *data, size_t count) {
    return count == 0 || (data[0] == 0 && memcmp(data, data + 1, count - 1) == 0);
}

// Whether the buffer still holds the message, and zeros behind it, but for the bytes that a handler may write to.
bool is_kept(bytes msg, const uint8_t *buf, size_t room) {
    constexpr size_t scratch_end = IPC_HDR_SIZE + KX_IPC_RX_SCRATCH;
    msg.resize(std::max(msg.size(), scratch_end));
    return memcmp(msg.data(), buf, IPC_HDR_SIZE) == 0 &&
           memcmp(msg.data() + scratch_end, buf + scratch_end, msg.size() - scratch_end) == 0 &&
           all_zero(buf + msg.size(), room - msg.size());
}

}  // namespace

platform *platform::current = nullptr;

platform::platform(int level)
    : log_level(level),
      endpoint(&the_endpoint),
      rx_buf(g_cfg.ipc_rx_buf),
      rx_buf_len(sizeof(g_cfg.ipc_rx_buf)),
      recv(client_mgr_recv_msg),
      controller_recv(client_mgr_apcomm_recv_msg),
      controller_status_cb(client_mgr_apcomm_ctrl_status),
      real_stdout(stdout) {
    set_clock(1700000000, 123);
    kx_log_conf_data = {.word0 = 0, .word1 = 0, .level = -1, .console = 0, .word4 = 0, .max_file_size = MAX_LOG_SIZE};
    cur_log_size = 0;
    log_file_name = nullptr;
    fresh_daemon();
    kx_log_conf_data.level = level;
    current = this;
    open_log();
    take_stdout();
}

platform::~platform() {
    lend_stdout();
    close_log();
    current = nullptr;
    if (!dump_file.empty()) {
        unlink(dump_file.c_str());
        rmdir(dump_file.substr(0, dump_file.rfind('/')).c_str());
    }
}

// --- faults and hooks

void platform::fail_nth(std::string_view call, unsigned n, int result) {
    rules.push_back({std::string(call), n, false, result, 0, false});
}

void platform::fail_from(std::string_view call, unsigned n, int result) {
    rules.push_back({std::string(call), n, true, result, 0, false});
}

void platform::on(std::string_view call, std::function<void()> what) { hooks[std::string(call)] = std::move(what); }

int platform::outcome(std::string_view call, int normal) {
    if (const auto hook = hooks.find(call); hook != hooks.end()) {
        hook->second();
    }
    int result = normal;
    for (rule &r : rules) {
        if (r.call != call) {
            continue;
        }
        r.calls++;
        if (r.calls == r.nth || (r.onwards && r.calls > r.nth)) {
            r.fired = true;
            result = r.result;
        }
    }
    return result;
}

int platform::recorded(std::string_view call, const std::string &what, int normal) {
    const int result = outcome(call, normal);
    record(result == normal ? what : what + " = " + std::to_string(result));
    return result;
}

void platform::end_rules() {
    for (const rule &r : rules) {
        if (!r.fired) {
            complain("the rule on call " + std::to_string(r.nth) + " of " + r.call + " never fired");
        }
    }
    rules.clear();
}

void platform::finish() {
    end_rules();
    if (!sockets.empty()) {
        complain(std::to_string(sockets.size()) + " sockets are left open");
    }
    if (hostapd_connection != nullptr) {
        complain("the connection to hostapd is left open");
    }
}

// --- time

void platform::arm(int64_t delay_usecs, kx_eloop_timeout_handler handler, void *ctx1, void *ctx2) {
    timers.push_back({mono_usecs + delay_usecs, handler, ctx1, ctx2});
}

void platform::advance(unsigned secs) {
    const int64_t end_usecs = mono_usecs + int64_t{secs} * 1000000;
    const auto earlier = [](const timer &a, const timer &b) { return a.due < b.due; };
    while (!timers.empty()) {
        const auto next = std::min_element(timers.begin(), timers.end(), earlier);
        if (next->due > end_usecs) {
            break;
        }
        const timer due = *next;
        timers.erase(next);
        wall_usecs += due.due - mono_usecs;
        mono_usecs = due.due;
        const inside daemon;
        due.handler(due.ctx1, due.ctx2);
    }
    wall_usecs += end_usecs - mono_usecs;
    mono_usecs = end_usecs;
}

// --- events

ending platform::main() {
    close_log();
    endpoint = nullptr;
    recv = nullptr;
    controller_recv = nullptr;
    controller_status_cb = nullptr;
    inside_main = true;
    const inside daemon;
    if (setjmp(leave) == 0) {
        end = {false, client_mgr_main()};
    } else {
        end = {true, exit_status};
    }
    inside_main = false;
    fflush(stdout);  // as the end of the process does
    return end;
}

void platform::main_until_exit() { client_mgr_main(); }

const std::string &platform::dump_path() {
    if (dump_file.empty()) {
        dump_file = own_directory() + "/clientmgr_cli";
    }
    return dump_file;
}

void platform::leave_main(int status) {
    exit_status = status;
    longjmp(leave, 1);
}

void platform::local(uint32_t id, const bytes &payload, uint32_t flags) {
    if (recv == nullptr) {
        throw std::logic_error("no endpoint is open");
    }
    const bytes msg = big32(id) + big32(static_cast<uint32_t>(payload.size())) + big32(flags) + payload;
    if (msg.size() > rx_buf_len) {
        throw std::invalid_argument("longer than the receive buffer");
    }
    memset(rx_buf, 0, rx_buf_len);
    std::copy(msg.begin(), msg.end(), rx_buf);

    kx_ipc_rx rx = {reinterpret_cast<kx_ipc_msg_hdr *>(rx_buf), rx_buf + IPC_HDR_SIZE};
    answering = &rx;
    {
        const inside daemon;
        recv(&rx);
    }
    answering = nullptr;

    if (!is_kept(msg, rx_buf, rx_buf_len)) {
        complain("the handler of id " + std::to_string(id) + " wrote outside the scratch bytes of the message");
    }
}

void platform::controller(const bytes &msg) {
    // On the heap and no longer than it is, so that a sanitizer sees a read past its end.
    const std::unique_ptr<uint8_t[]> copy(new uint8_t[msg.size()]);
    std::copy(msg.begin(), msg.end(), copy.get());
    {
        const inside daemon;
        controller_recv(nullptr, copy.get(), static_cast<uint32_t>(msg.size()));
    }
    if (!std::equal(msg.begin(), msg.end(), copy.get())) {
        complain("the controller's message was written to");
    }
}

void platform::controller_status(uint32_t ip, uint32_t status) {
    const inside daemon;
    controller_status_cb(ip, status);
}

void platform::open_endpoint() { endpoint = &the_endpoint; }

// --- sockets

int platform::open_socket() {
    const int fd = sockets.empty() ? FIRST_SOCKET : sockets.back() + 1;
    sockets.push_back(fd);
    return fd;
}

bool platform::is_open(int fd) const { return std::find(sockets.begin(), sockets.end(), fd) != sockets.end(); }

void platform::close_socket(int fd) { sockets.erase(std::find(sockets.begin(), sockets.end(), fd)); }

// --- log and console

void platform::open_log() {
    const cookie_io_functions_t functions = {nullptr, log_written, log_seeked, nullptr};
    log_stream = fopencookie(this, "w", functions);
    setvbuf(log_stream, log_room, _IOFBF, sizeof(log_room));
    log_file_name = log_stream;
}

void platform::close_log() {
    log_file_name = nullptr;
    if (log_stream != nullptr) {
        fclose(log_stream);
    }
    log_stream = nullptr;
}

ssize_t platform::log_written(void *self, const char *data, size_t len) {
    const outside own_code;
    return static_cast<platform *>(self)->write_log({data, len}) ? static_cast<ssize_t>(len) : 0;
}

int platform::log_seeked(void *self, off64_t *offset, int whence) {
    const outside own_code;
    if (whence == SEEK_SET && *offset == 0) {
        static_cast<platform *>(self)->record("log rewound");
    }
    return 0;
}

// One write is one line: the prefix with the time of the real-time clock, the text, a newline. Whether it succeeds.
bool platform::write_log(std::string_view chunk) {
    // The seconds as this machine's clock can show them.
    char text_of_now[40];
    const auto length = static_cast<size_t>(snprintf(
        text_of_now, sizeof text_of_now, ":%lld:%d: ", static_cast<long long>(static_cast<time_t>(wall_secs())),
        static_cast<int>(wall_usecs % 1000000 / 1000)));
    const std::string_view prefix(text_of_now, length);
    if (chunk.substr(0, prefix.size()) != prefix || chunk.back() != '\n') {
        complain("not one whole line of this moment in one write: " + escaped(chunk));
        return true;
    }
    if (outcome("log", 0) != 0) {
        return false;
    }
    const std::string_view text = chunk.substr(prefix.size(), chunk.size() - prefix.size() - 1);
    std::string effect = escaped(without_source_line(std::string(text)));
    effect.insert(0, "log: ");
    effects.push_back(std::move(effect));
    return true;
}

ssize_t platform::console_written(void *self, const char *data, size_t len) {
    const outside own_code;
    static_cast<platform *>(self)->write_console({data, len});
    return static_cast<ssize_t>(len);
}

void platform::write_console(std::string_view chunk) {
    for (char c : chunk) {
        if (c != '\n') {
            console_line += c;
            continue;
        }
        record("console: " + escaped(without_source_line(console_line)));
        console_line.clear();
    }
}

void platform::take_stdout() {
    const cookie_io_functions_t functions = {nullptr, console_written, nullptr, nullptr};
    stdout = fopencookie(this, "w", functions);
    setvbuf(stdout, console_room, _IOFBF, sizeof(console_room));
}

void platform::lend_stdout() {
    fclose(stdout);
    stdout = real_stdout;
}

std::vector<std::string> platform::take_effects() {
    if (!console_line.empty()) {
        record("console without newline: " + escaped(console_line));
    }
    console_line.clear();
    return std::move(effects);
}

}  // namespace sim
