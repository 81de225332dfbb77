#include "tests/bench/private_dev.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <string>

namespace {

bool keep_device(const std::string &name, const std::string &aside) {
    std::string place = aside + "/" + name;
    int fd = open(place.c_str(), O_CREAT | O_CLOEXEC, 0600);
    return fd >= 0 && close(fd) == 0 && mount(("/dev/" + name).c_str(), place.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

bool replace_dev() {
    std::array<char, 32> aside{"/tmp/client_mgr-dev.XXXXXX"};
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mkdtemp(aside.data()) == nullptr) {
        return false;
    }
    bool done = mount("none", aside.data(), "tmpfs", 0, nullptr) == 0 && keep_device("null", aside.data()) &&
                keep_device("zero", aside.data()) && keep_device("urandom", aside.data()) &&
                mount(aside.data(), "/dev", nullptr, MS_MOVE, nullptr) == 0;
    rmdir(aside.data());
    return done;
}

}  // namespace

int open_private_system_log() {
    if (!replace_dev()) {
        return -1;
    }
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string("/dev/log").copy(address.sun_path, sizeof(address.sun_path) - 1);
    return bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0 ? fd : -1;
}
