// sitectl: sends an operator's command to the site controller.
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/command_line.h"
#include "common/ipc_endpoint.h"
#include "controller/commands.h"

namespace {

constexpr timeval wait_limit = {10, 0};

[[noreturn]] void fail(const std::string &path) {
    throw std::runtime_error(path + ": " +
                             (errno == EAGAIN ? "no answer from the controller within 10 s" : std::strerror(errno)));
}

class connection {
public:
    explicit connection(const std::string &path) : path_(path) {
        const kx::ipc_address address = kx::make_ipc_address(path);
        fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd_ < 0 || connect(fd_, address.get(), address.length) != 0) {
            fail(path);
        }
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &wait_limit, sizeof(wait_limit));
        setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &wait_limit, sizeof(wait_limit));
    }
    ~connection() { close(fd_); }
    connection(const connection &) = delete;
    connection &operator=(const connection &) = delete;

    // A controller that refuses the command may close the connection before it has read the whole command; its answer
    // can be read all the same.
    void send(std::string_view text) {
        while (!text.empty()) {
            const ssize_t size = write(fd_, text.data(), text.size());
            if (size < 0 && (errno == EPIPE || errno == ECONNRESET)) {
                return;
            }
            if (size < 0) {
                fail(path_);
            }
            text.remove_prefix(static_cast<std::size_t>(size));
        }
    }

    std::string receive_all() {
        std::string text;
        char chunk[4096];
        ssize_t size = 0;
        while ((size = read(fd_, chunk, sizeof(chunk))) > 0) {
            text.append(chunk, static_cast<std::size_t>(size));
        }
        if (size < 0) {
            fail(path_);
        }
        return text;
    }

private:
    std::string path_;
    int fd_ = -1;
};

int run(const std::string &control, const std::vector<std::string> &words) {
    std::string line;
    for (const std::string &word : words) {
        line += (line.empty() ? "" : " ") + word;
    }
    if (line.find('\n') != std::string::npos) {
        throw std::runtime_error("the command contains a line break");
    }
    connection to(control);
    to.send(line + '\n');
    const std::string answer = to.receive_all();
    if (answer.starts_with("ok\n")) {
        std::cout << answer.substr(3) << std::flush;
        return std::cout ? 0 : 1;
    }
    throw std::runtime_error(answer.starts_with("error ") ? answer.substr(6, answer.find('\n') - 6)
                                                          : "the controller closed the connection without an answer");
}

}  // namespace

int main(int argc, char **argv) {
    try {
        std::signal(SIGPIPE, SIG_IGN);
        std::string control;
        std::vector<std::string> words;
        CLI::App app("Sends a command to the site controller and prints the answer.", "sitectl");
        app.set_version_flag("--version", "sitectl " CLIENT_MGR_VERSION);
        app.add_option("--control", control, "Path of the controller's control socket")->type_name("PATH")->required();
        app.add_option("command", words, "The command and its arguments; with --json lists are printed as JSON")
            ->type_name("")
            ->required();
        app.prefix_command();
        app.footer("Commands:\n" + controller::command_summary());
        if (const auto status = kx::parse_command_line(app, argc, argv)) {
            return *status;
        }
        for (const std::string &rest : app.remaining()) {
            words.push_back(rest);
        }
        return run(control, words);
    } catch (const std::exception &error) {
        std::cerr << "sitectl: " << error.what() << '\n';
        return 1;
    }
}
