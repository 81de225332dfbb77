#include "controller/store/sqlite/copies.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>

#include "controller/store/json_lines.h"

namespace controller::sqlite {

namespace {

[[noreturn]] void fail(const std::string &file) { throw store_error(file + ": " + std::strerror(errno)); }

class descriptor {
public:
    descriptor(const std::string &file, int flags) : fd_(open(file.c_str(), flags | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
        if (fd_ < 0) {
            fail(file);
        }
    }
    ~descriptor() { close(fd_); }
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

void sync(const std::string &file) {
    const auto directory = std::filesystem::path(file).parent_path().string();
    if (fsync(descriptor(file, O_RDONLY).get()) != 0 || fsync(descriptor(directory, O_RDONLY).get()) != 0) {
        fail(file);
    }
}

// Makes `file`, has it filled, and removes it when that fails.
void make_file(const std::string &file, const std::function<void(int fd)> &fill) {
    const descriptor made(file, O_WRONLY | O_CREAT | O_EXCL);
    try {
        fill(made.get());
        sync(file);
    } catch (...) {
        unlink(file.c_str());
        throw;
    }
}

// Collects lines, so that not each is a call of write().
class line_file {
public:
    line_file(int fd, const std::string &file) : fd_(fd), file_(file) {}

    void add(const std::string &line) {
        text_ += line;
        if (text_.size() >= 65536) {
            flush();
        }
    }
    void flush() {
        for (std::string_view rest = text_; !rest.empty();) {
            const ssize_t size = write(fd_, rest.data(), rest.size());
            if (size < 0) {
                fail(file_);
            }
            rest.remove_prefix(static_cast<std::size_t>(size));
        }
        text_.clear();
    }

private:
    int fd_;
    const std::string &file_;
    std::string text_;
};

// Pages of `read`, the newest first.
template <typename Read>
void add_pages(line_file &to, Read read) {
    for (page_of page{std::nullopt, page_limit_max};;) {
        const auto entries = read(page);
        if (entries.empty()) {
            return;
        }
        for (const auto &each : entries) {
            to.add(json_line(each));
        }
        page.before = entries.back().number;
    }
}

}  // namespace

contents load_contents(const connection &from, const std::optional<pmk_cipher> &cipher) {
    contents loaded;
    const transaction moment(from, transaction::mode::read);
    loaded.clients = client_journal(from).load();
    site_rows(from, cipher).load(loaded);
    return loaded;
}

void write_backup(const place_of_store &from, const std::string &file) {
    make_file(file, [&](int) {
        const connection database(from.file, connection::mode::read, from.vfs);
        statement(database, "VACUUM INTO ?").bind(0, file).run();
    });
}

void write_export(const place_of_store &from, const std::string &file) {
    make_file(file, [&](int fd) {
        line_file to(fd, file);
        const connection database(from.file, connection::mode::read, from.vfs);
        for (const std::string &line : json_lines(load_contents(database, std::nullopt))) {
            to.add(line);
        }
        add_pages(to, [&](const page_of &page) { return read_history(database, std::nullopt, page, wall_time()); });
        add_pages(to, [&](const page_of &page) { return read_audit(database, page); });
        to.flush();
    });
}

}  // namespace controller::sqlite
