#include "controller/control_client.h"

#include <event2/http.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "common/ipc_endpoint.h"

namespace controller {

namespace {

constexpr timeval wait_limit = {10, 0};

std::string describe_error(const std::string &path) {
    return path + ": " + (errno == EAGAIN ? "no answer from the controller within 10 s" : std::strerror(errno));
}

class connection {
public:
    explicit connection(const std::string &path) : path_(path) {
        const kx::ipc_address address = kx::make_ipc_address(path);
        fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd_ < 0 || connect(fd_, address.get(), address.length) != 0) {
            throw unreachable(describe_error(path));
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
            const ssize_t size = ::send(fd_, text.data(), text.size(), MSG_NOSIGNAL);
            if (size < 0 && (errno == EPIPE || errno == ECONNRESET)) {
                return;
            }
            if (size < 0) {
                throw unreachable(describe_error(path_));
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
            throw unanswered(describe_error(path_));
        }
        return text;
    }

private:
    std::string path_;
    int fd_ = -1;
};

}  // namespace

control_answer ask_controller(const std::string &path, std::string_view line) {
    connection to(path);
    to.send(std::string(line) + '\n');
    const std::string answer = to.receive_all();
    const std::size_t end = answer.find('\n');
    const std::string status = answer.substr(0, end);
    if (end != std::string::npos && status == "ok") {
        return {.text = answer.substr(end + 1), .next = ""};
    }
    if (end != std::string::npos && status.starts_with("more ")) {
        return {.text = answer.substr(end + 1), .next = status.substr(5)};
    }
    if (status.starts_with("error ")) {
        throw command_refused(status.substr(6));
    }
    throw unanswered(path + ": the controller closed the connection without an answer");
}

std::string encode_word(const std::string &word) {
    const std::unique_ptr<char, decltype(&std::free)> encoded(
        evhttp_uriencode(word.data(), static_cast<ev_ssize_t>(word.size()), 0), std::free);
    const std::string text = encoded.get();
    return text.starts_with('-') ? "%2D" + text.substr(1) : text;  // what begins with '-' is an option
}

}  // namespace controller
