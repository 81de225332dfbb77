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
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "common/ap_config.h"
#include "common/ipc_endpoint.h"
#include "common/paths.h"
#include "wire/driver_service.h"
#include "wire/local_messages.h"

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

// A text split at its MAC address: a plain daemon formats the parts.
struct log_line {
    std::string before, after;
    std::optional<kx::mac_address> mac;
};

log_line split(const std::string &text) {
    for (std::size_t at = 0; at + 17 <= text.size(); at++) {
        if (const std::optional<kx::mac_address> mac = kx::parse_mac(std::string_view(text).substr(at, 17))) {
            return {text.substr(0, at), text.substr(at + 17), mac};
        }
    }
    return {text, "", std::nullopt};
}

// Starts the file again at the same size as the daemon.
constexpr long log_size_max = 1 << 20;

class event_log {
public:
    event_log(const std::string &file, const deeds &does) : style_(does.style), stream_(std::fopen(file.c_str(), "w")) {
        std::setvbuf(stream_, nullptr, _IOFBF, 8192);
        for (const std::string &line : does.log_lines) {
            lines_.push_back(split(line));
            ready_.push_back(":1795252939:529: " + line + "\n");
        }
    }

    void write_event() {
        if (size_ > log_size_max) {
            std::rewind(stream_);
            size_ = 0;
        }
        if (style_ == deeds::style::plain_daemon) {
            for (const log_line &line : lines_) {
                print(line);
            }
            return;
        }
        for (const std::string &line : ready_) {
            size_ += write(fileno(stream_), line.data(), line.size());
        }
    }

private:
    void print(const log_line &line) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        int length = std::fprintf(stream_, ":%ld:%ld: ", static_cast<long>(now.tv_sec), now.tv_nsec / 1'000'000);
        if (line.mac) {
            const kx::mac_address &mac = *line.mac;
            length += std::fprintf(stream_, "%s%02x:%02x:%02x:%02x:%02x:%02x%s\n", line.before.c_str(), mac[0], mac[1],
                                   mac[2], mac[3], mac[4], mac[5], line.after.c_str());
        } else {
            length += std::fprintf(stream_, "%s\n", line.before.c_str());
        }
        std::fflush(stream_);
        size_ += length;
    }

    enum deeds::style style_;
    std::FILE *stream_;
    std::vector<log_line> lines_;
    std::vector<std::string> ready_;
    long size_ = 0;
};

// The connections of a process that stands in for the daemon.
class exchange_process {
public:
    exchange_process(const std::string &root, const deeds &does)
        : root_(root), does_(does), log_(root + "/plain.log", does), inbox_(socket(AF_UNIX, SOCK_DGRAM, 0)) {
        kx::ipc_address address = kx::make_ipc_address(place(kx::endpoint_client_mgr));
        if (bind(inbox_, address.get(), address.length) != 0) {
            throw std::system_error(errno, std::generic_category(), "bind");
        }
        bool logs = count(does.outputs)[static_cast<std::size_t>(receiver::system_log)] > 0;
        fds_[static_cast<std::size_t>(receiver::portal)] = connected(place(kx::endpoint_captive_app), SOCK_DGRAM);
        fds_[static_cast<std::size_t>(receiver::hostapd)] = connected(place(kx::endpoint_hostapd), SOCK_DGRAM);
        fds_[static_cast<std::size_t>(receiver::monitor)] = connected(place(kx::endpoint_sysmon), SOCK_DGRAM);
        fds_[static_cast<std::size_t>(receiver::system_log)] = logs ? connected("/dev/log", SOCK_DGRAM) : -1;
        fds_[static_cast<std::size_t>(receiver::radio)] =
            connected(place(kx::driver_directory) + "/wlan0", SOCK_SEQPACKET);
        answer_heartbeat();                                   // announces the process
        recv(inbox_, received_.data(), received_.size(), 0);  // the system's start
        fds_[static_cast<std::size_t>(receiver::controller)] = connected(place(kx::endpoint_apcomm), SOCK_SEQPACKET);
    }

    [[noreturn]] void run() {
        for (std::size_t left = does_.messages;;) {
            ssize_t size = recv(inbox_, received_.data(), received_.size(), 0);
            if (size == static_cast<ssize_t>(sizeof(ipc_hdr))) {
                answer_heartbeat();
                continue;
            }
            if (--left == 0) {
                left = does_.messages;
                answer_event();
            }
        }
    }

private:
    std::string place(std::string_view path) const { return root_ + std::string(path); }
    void answer_heartbeat() { send(fds_[static_cast<std::size_t>(receiver::monitor)], sent_.data(), 20, MSG_NOSIGNAL); }
    void answer_event() {
        log_.write_event();
        for (const sent_message &output : does_.outputs) {
            if (output.to == receiver::radio) {
                int radio = fds_[static_cast<std::size_t>(receiver::radio)];
                send(radio, sent_.data(), output.size, MSG_NOSIGNAL);
                recv(radio, received_.data(), received_.size(), 0);
            } else if (output.to == receiver::system_log && does_.style == deeds::style::plain_daemon) {
                syslog(LOG_USER | LOG_INFO,
                       "<clmgr> Proc Association-Req %02x:%02x:%02x:%02x:%02x:%02x -- %02x:%02x:%02x:%02x:%02x:%02x", 2,
                       0, 0, 0, 0x10, 1, 2, 0xaa, 0x17, 0, 0, 1);
            } else {
                send(fds_[static_cast<std::size_t>(output.to)], sent_.data(), output.size, MSG_NOSIGNAL);
            }
        }
    }

    std::string root_;
    deeds does_;
    event_log log_;
    int inbox_;
    std::array<int, receivers> fds_{};
    std::array<std::uint8_t, 16384> received_{}, sent_{};
};

// Executes the program. It ends when the driver ends.
void begin_child() {
    sched_param none{};
    sched_setscheduler(0, SCHED_OTHER, &none);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

void write_config(const std::string &root, unsigned vaps) {
    std::ofstream file(root + "/ap.toml");
    file << "[ap]\nmac = \"02:00:00:00:10:00\"\n[controller]\naddress = \"127.0.0.1\"\n"
            "port = 1\nca = \"none\"\ncertificate = \"none\"\nkey = \"none\"\n";
    for (unsigned i = 0; i < vaps; i++) {
        file << "[[vap]]\nifname = \"wlan" << i << "\"\nssid = \"office\"\nvlan = 10\n";
    }
}

}  // namespace

std::unique_ptr<subject> subject::client_manager(const std::string &program, const std::string &root, int level,
                                                 int system_log, unsigned vaps) {
    std::unique_ptr<subject> made(new subject(make_directory(root), system_log, vaps));
    write_config(root, vaps);
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

std::unique_ptr<subject> subject::exchange(const std::string &root, const deeds &does, int system_log) {
    std::unique_ptr<subject> made(new subject(make_directory(root), system_log, 1));
    made->pid_ = fork();
    if (made->pid_ == 0) {
        begin_child();
        try {
            exchange_process(root, does).run();
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
