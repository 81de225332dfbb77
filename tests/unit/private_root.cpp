#include "tests/unit/private_root.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

constexpr char log_name[] = "/syslog";

}  // namespace

// The test programs are linked with --wrap=syslog. Lines go to a file, because some come from child processes.
extern "C" void __wrap_syslog(int, const char *format, ...) {
    const char *root = std::getenv("KX_ROOT");
    int fd = root == nullptr ? -1 : open((std::string(root) + log_name).c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    if (fd < 0) {
        return;
    }
    std::array<char, 1024> line;
    va_list arguments;
    va_start(arguments, format);
    int size = std::vsnprintf(line.data(), line.size() - 1, format, arguments);
    va_end(arguments);
    auto length = std::min(static_cast<std::size_t>(size), line.size() - 2);
    line[length] = '\n';
    [[maybe_unused]] ssize_t written = write(fd, line.data(), length + 1);
    close(fd);
}

private_root::private_root() {
    char name[] = "/tmp/kx-unit.XXXXXX";
    if (mkdtemp(name) == nullptr) {
        throw std::runtime_error("no temporary directory");
    }
    root_ = name;
    umask(S_IRWXG | S_IRWXO);
    setenv("KX_ROOT", name, 1);
    unsetenv("KX_CONFIG");
    unsetenv("KX_LOG_LEVEL");
}

private_root::~private_root() {
    unsetenv("KX_ROOT");
    std::filesystem::remove_all(root_);
}

std::string private_root::write_file(const std::string &name, const std::string &text) const {
    std::string path = root_ + "/" + name;
    std::ofstream(path) << text;
    return path;
}

std::string private_root::read_file(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

std::vector<std::string> private_root::syslog_lines() const {
    std::ifstream log(root_ + log_name);
    std::vector<std::string> lines;
    for (std::string line; std::getline(log, line);) {
        lines.push_back(line);
    }
    return lines;
}

unsigned private_root::mode_of(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777u : 0;
}
