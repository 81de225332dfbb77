#include "tunnel/secret_log.h"

#include <fcntl.h>
#include <openssl/ssl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace kx {

namespace {

class secret_file {
public:
    explicit secret_file(const std::string &name)
        : fd_(::open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                     S_IRUSR | S_IWUSR)) {
        if (fd_ < 0) {
            throw std::runtime_error("cannot open " + name + ": " + std::strerror(errno));
        }
        struct stat found {};
        const bool ours = ::fstat(fd_, &found) == 0 && S_ISREG(found.st_mode) && found.st_uid == ::geteuid() &&
                          (found.st_mode & (S_IRWXG | S_IRWXO)) == 0;
        if (!ours) {
            ::close(fd_);
            throw std::runtime_error(name + " is for secrets: expected a regular file that only its owner may read");
        }
    }
    ~secret_file() { ::close(fd_); }
    secret_file(const secret_file &) = delete;
    secret_file &operator=(const secret_file &) = delete;

    // A line that cannot be written is lost.
    void write(const std::string &line) const { static_cast<void>(::write(fd_, line.data(), line.size()) < 0); }

private:
    int fd_;
};

void free_file(void *, void *file, CRYPTO_EX_DATA *, int, long, void *) { delete static_cast<secret_file *>(file); }

// Where a context has its file.
int place_in_context() {
    static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, free_file);
    return index;
}

void write_secret(const SSL *ssl, const char *line) {
    static_cast<const secret_file *>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(ssl), place_in_context()))
        ->write(line + std::string("\n"));
}

}  // namespace

void log_secrets(SSL_CTX *tls, const std::string &file) {
    auto opened = std::make_unique<secret_file>(file);
    if (SSL_CTX_set_ex_data(tls, place_in_context(), opened.get()) != 1) {
        throw std::bad_alloc();
    }
    static_cast<void>(opened.release());  // the context's
    SSL_CTX_set_keylog_callback(tls, write_secret);
}

}  // namespace kx
