#include "tests/bench/subject.h"

#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "client_mgr/messages.h"
#include "platform/linux/ipc_endpoint.h"
#include "platform/linux/paths.h"

namespace bench {

namespace {

std::string make_directory(const std::string &path) {
    std::filesystem::create_directories(path);
    return path;
}

int connected(const std::string &path, int kind) {
    int fd = socket(AF_UNIX, kind | SOCK_CLOEXEC, 0);
    kx::ipc_address address = kx::make_ipc_address(path);
    if (fd < 0 || connect(fd, address.get(), address.length) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return fd;
}

// The text up to a MAC address in it, the address, and the text behind: what a plain daemon formats.
struct log_line {
    std::string before, after;
    std::array<unsigned, 6> mac{};
    bool has_mac = false;
};

log_line split(const std::string &text) {
    for (std::size_t at = 0; at + 17 <= text.size(); at++) {
        log_line line;
        auto &mac = line.mac;
        if (std::sscanf(text.c_str() + at, "%2x:%2x:%2x:%2x:%2x:%2x", &mac[0], &mac[1], &mac[2], &mac[3], &mac[4],
                        &mac[5]) == 6) {
            line.before = text.substr(0, at);
            line.after = text.substr(at + 17);
            line.has_mac = true;
            return line;
        }
    }
    return {text, "", {}, false};
}

class plain_log {
public:
    plain_log(const std::string &file, const std::vector<std::string> &lines)
        : stream_(std::fopen(file.c_str(), "w")) {
        for (const std::string &line : lines) {
            lines_.push_back(split(line));
        }
    }

    void write_event() {
        if (lines_.empty()) {
            return;
        }
        syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Association-Req %02x:%02x:%02x:%02x:%02x:%02x -- "
               "%02x:%02x:%02x:%02x:%02x:%02x", 2, 0, 0, 0, 0x10, 1, 2, 0xaa, 0x17, 0, 0, 1);
        for (const log_line &line : lines_) {
            write(line);
        }
    }

private:
    void write(const log_line &line) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        if (size_ > 1 << 20) {
            std::rewind(stream_);
            size_ = 0;
        }
        int length = std::fprintf(stream_, ":%ld:%ld: ", static_cast<long>(now.tv_sec), now.tv_nsec / 1'000'000);
        const auto &mac = line.mac;
        length += line.has_mac ? std::fprintf(stream_, "%s%02x:%02x:%02x:%02x:%02x:%02x%s\n", line.before.c_str(),
                                              mac[0], mac[1], mac[2], mac[3], mac[4], mac[5], line.after.c_str())
                               : std::fprintf(stream_, "%s\n", line.before.c_str());
        std::fflush(stream_);
        size_ += length;
    }

    std::FILE *stream_;
    std::vector<log_line> lines_;
    long size_ = 0;
};

void ask_radio(const std::string &path, const bytes &request) {
    static std::array<std::uint8_t, 16384> answer;
    int fd = connected(path, SOCK_SEQPACKET);
    send(fd, request.data(), request.size(), MSG_NOSIGNAL);
    recv(fd, answer.data(), answer.size(), 0);
    close(fd);
}

// The whole life of a raw process. Messages are as long as those of the client manager; what is in them does not
// matter.
[[noreturn]] void exchange(const std::string &root, std::size_t messages, const std::vector<sent_message> &outputs,
                           const std::vector<std::string> &lines) {
    auto place = [&](std::string_view path) { return root + std::string(path); };
    int inbox = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    kx::ipc_address address = kx::make_ipc_address(place(kx::endpoint_client_mgr));
    if (bind(inbox, address.get(), address.length) != 0) {
        _exit(1);
    }
    const int portal = connected(place(kx::endpoint_captive_app), SOCK_DGRAM);
    const int hostapd = connected(place(kx::endpoint_hostapd), SOCK_DGRAM);
    const int monitor = connected(place(kx::endpoint_sysmon), SOCK_DGRAM);
    static std::array<std::uint8_t, 16384> received, sent;
    send(monitor, sent.data(), 20, MSG_NOSIGNAL);
    recv(inbox, received.data(), received.size(), 0);  // the system's start
    const int controller = connected(place(kx::endpoint_apcomm), SOCK_SEQPACKET);
    const std::string radio = place(kx::radio_directory) + "/wlan0";
    plain_log log(root + "/plain.log", lines);

    for (std::size_t left = messages;;) {
        ssize_t size = recv(inbox, received.data(), received.size(), 0);
        if (size == static_cast<ssize_t>(sizeof(ipc_hdr))) {
            send(monitor, sent.data(), 20, MSG_NOSIGNAL);
            continue;
        }
        if (--left > 0) {
            continue;
        }
        left = messages;
        log.write_event();
        for (const sent_message &output : outputs) {
            switch (output.to) {
                case receiver::portal:
                    send(portal, sent.data(), output.size, MSG_NOSIGNAL);
                    break;
                case receiver::hostapd:
                    send(hostapd, sent.data(), output.size, MSG_NOSIGNAL);
                    break;
                case receiver::controller:
                    send(controller, sent.data(), output.size, MSG_NOSIGNAL);
                    break;
                case receiver::radio:
                    ask_radio(radio, bytes(output.size));
                    break;
                case receiver::monitor:
                case receiver::system_log:
                    break;
            }
        }
    }
}

// As any process starts; and it does not outlive the driver.
void begin_child() {
    sched_param none{};
    sched_setscheduler(0, SCHED_OTHER, &none);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

void write_config(const std::string &root) {
    std::ofstream(root + "/ap.toml") << "[ap]\nmac = \"02:00:00:00:10:00\"\n[controller]\naddress = \"127.0.0.1\"\n"
                                        "port = 1\nca = \"none\"\ncertificate = \"none\"\nkey = \"none\"\n"
                                        "[[vap]]\nifname = \"wlan0\"\nssid = \"office\"\nvlan = 10\n";
}

}  // namespace

std::unique_ptr<subject> subject::client_manager(const std::string &program, const std::string &root, int level,
                                                 int system_log) {
    std::unique_ptr<subject> made(new subject(make_directory(root), system_log));
    write_config(root);
    made->pid_ = fork();
    if (made->pid_ == 0) {
        begin_child();
        setenv("KX_ROOT", root.c_str(), 1);
        unsetenv("KX_CONFIG");
        setenv("KX_LOG_LEVEL", std::to_string(level).c_str(), 1);
        execl(program.c_str(), program.c_str(), nullptr);
        std::fprintf(stderr, "%s: %s\n", program.c_str(), std::strerror(errno));
        _exit(127);
    }
    made->around_.connect();
    for (const bytes &message : start_up_messages()) {
        made->around_.send(message);
        made->around_.settle();
    }
    return made;
}

std::unique_ptr<subject> subject::raw_exchange(const std::string &root, std::size_t messages,
                                               const std::vector<sent_message> &outputs,
                                               const std::vector<std::string> &lines, int system_log) {
    std::unique_ptr<subject> made(new subject(make_directory(root), system_log));
    made->pid_ = fork();
    if (made->pid_ == 0) {
        begin_child();
        try {
            exchange(root, messages, outputs, lines);
        } catch (const std::exception &error) {
            std::fprintf(stderr, "raw exchange: %s\n", error.what());
            _exit(1);
        }
    }
    made->around_.connect();
    return made;
}

subject::~subject() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

double subject::cpu_time() const {
    clockid_t clock{};
    timespec used{};
    if (clock_getcpuclockid(pid_, &clock) != 0 || clock_gettime(clock, &used) != 0) {
        throw std::runtime_error("the measured process has ended");
    }
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

std::vector<std::string> subject::new_log_lines() {
    std::ifstream file(around_.root() + "/log/client_mgr.log");
    file.seekg(static_cast<std::streamoff>(log_read_));
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        log_read_ += line.size() + 1;
        // Without ":seconds:milliseconds: ".
        std::size_t text = line.find(": ");
        lines.push_back(text == std::string::npos ? line : line.substr(text + 2));
    }
    return lines;
}

}  // namespace bench
