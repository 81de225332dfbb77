#include "common/ipc_endpoint.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "common/paths.h"
#include "common/trusted_users.h"
#include "wire/local_ipc.h"

namespace kx {

namespace {

[[noreturn]] void fail(int error, const std::string &what) {
    throw std::system_error(error, std::generic_category(), what);
}

[[noreturn]] void fail_taken(const std::string &path) { fail(EADDRINUSE, path + " is served by another process"); }

class unique_fd {
public:
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(const unique_fd &) = delete;
    unique_fd &operator=(const unique_fd &) = delete;
    ~unique_fd() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    int get() const { return fd_; }
    int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_;
};

// While it lives, no other process checks, removes or binds names in `directory`. Otherwise two processes that start
// could find the same dead socket, and the second would remove the new socket of the first.
class directory_lock {
public:
    explicit directory_lock(const std::string &directory)
        : fd_(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (fd_.get() < 0 || flock(fd_.get(), LOCK_EX) != 0) {
            fail(errno, directory);
        }
    }

private:
    unique_fd fd_;
};

unique_fd make_socket(const std::string &path) {
    unique_fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (fd.get() < 0) {
        fail(errno, path);
    }
    return unique_fd(fd.release());
}

void remove_dead_socket(const ipc_address &address, const std::string &path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return;
    }
    if (!S_ISSOCK(status.st_mode)) {
        fail(EEXIST, path);
    }
    unique_fd probe = make_socket(path);
    if (connect(probe.get(), address.get(), address.length) == 0) {
        fail_taken(path);
    }
    // Any other error, such as that of another socket type, means a live process.
    if (errno == ENOENT) {
        fail(EAGAIN, path);
    }
    if (errno != ECONNREFUSED) {
        fail_taken(path);
    }
    if (unlink(path.c_str()) != 0) {
        fail(errno, path);
    }
}

const char *find_fault(const msghdr &message, const ipc_datagram &datagram, const std::uint8_t *bytes,
                       const ucred *sender) {
    if (datagram.stranger) {
        return sender == nullptr ? "sender unknown" : "sender not permitted";
    }
    if ((message.msg_flags & MSG_TRUNC) != 0) {
        return "longer than the buffer";
    }
    if (datagram.size < ipc_header_size) {
        return "shorter than its header";
    }
    ipc_hdr header{};
    std::memcpy(&header, bytes, sizeof(header));
    if (header.len != datagram.size - ipc_header_size) {
        return "length word does not match";
    }
    return nullptr;
}

// The sender's credentials in the control data of `message`, or null.
const ucred *find_credentials(msghdr &message) {
    for (cmsghdr *control = CMSG_FIRSTHDR(&message); control != nullptr; control = CMSG_NXTHDR(&message, control)) {
        if (control->cmsg_level == SOL_SOCKET && control->cmsg_type == SCM_CREDENTIALS) {
            return reinterpret_cast<const ucred *>(CMSG_DATA(control));
        }
    }
    return nullptr;
}

}  // namespace

std::string_view ipc_address::path() const {
    if (!is_named() || name.sun_path[0] == '\0') {
        return {};
    }
    return {name.sun_path, strnlen(name.sun_path, length - offsetof(sockaddr_un, sun_path))};
}

ipc_address make_ipc_address(const std::string &path) {
    ipc_address address;
    if (path.size() >= sizeof(address.name.sun_path)) {
        fail(ENAMETOOLONG, path);
    }
    address.name.sun_family = AF_UNIX;
    path.copy(address.name.sun_path, path.size());
    address.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    return address;
}

int open_ipc_endpoint(const std::string &path) {
    ipc_address address = make_ipc_address(path);
    std::string directory = path.substr(0, path.find_last_of('/'));
    make_private_directories(directory);

    unique_fd fd = make_socket(path);
    int on = 1;
    // bind gives its file the mode of the unbound socket.
    if (setsockopt(fd.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)) != 0 ||
        fchmod(fd.get(), S_IRUSR | S_IWUSR) != 0) {
        fail(errno, path);
    }
    directory_lock lock(directory);
    remove_dead_socket(address, path);
    if (bind(fd.get(), address.get(), address.length) != 0 || !open_to_group(path)) {
        fail(errno, path);
    }
    return fd.release();
}

void socket_file::remember(const std::string &path) {
    struct stat status {};
    path_ = path;
    if (lstat(path.c_str(), &status) == 0) {
        device_ = status.st_dev;
        inode_ = status.st_ino;
    }
}

bool socket_file::is_gone() const {
    struct stat status {};
    return lstat(path_.c_str(), &status) != 0 || status.st_dev != device_ || status.st_ino != inode_;
}

bool receive_ipc_datagram(int fd, std::span<std::uint8_t> buffer, ipc_datagram &datagram) {
    iovec data{buffer.data(), buffer.size()};
    // Room for the credentials alone, which come first. The kernel then installs no descriptors that a sender adds.
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    msghdr message{};
    message.msg_name = &datagram.sender.name;
    message.msg_namelen = sizeof(datagram.sender.name);
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);

    ssize_t size = recvmsg(fd, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (size < 0) {
        return false;
    }
    datagram.size = static_cast<std::size_t>(size);
    datagram.sender.length = message.msg_namelen;
    const ucred *sender = find_credentials(message);
    datagram.uid = sender == nullptr ? static_cast<uid_t>(-1) : sender->uid;
    datagram.pid = sender == nullptr ? 0 : sender->pid;
    datagram.stranger = sender == nullptr || !is_trusted_user(sender->uid);
    datagram.fault = find_fault(message, datagram, buffer.data(), sender);
    return true;
}

std::string describe_drop(const ipc_datagram &datagram) {
    std::string line = "dropped a local message of " + std::to_string(datagram.size) + " bytes from pid " +
                       std::to_string(datagram.pid) + ", uid " + std::to_string(datagram.uid);
    if (std::string_view path = datagram.sender.path(); !path.empty()) {
        line.append(" at ").append(path);
    }
    return line.append(": ").append(datagram.fault);
}

}  // namespace kx
