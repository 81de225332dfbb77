#include "controller/store_opening.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "controller/store/memory_store.h"
#include "controller/store/sqlite/sqlite_store.h"

namespace controller {

store_waker::store_waker(event_base *base)
    : fd_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)), woken_(base, fd_, EV_READ | EV_PERSIST, [this] {
          eventfd_t times = 0;
          eventfd_read(fd_, &times);
          if (store_ != nullptr) {
              store_->deliver();
          }
      }) {
    if (fd_ < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    woken_.start();
}

store_waker::~store_waker() { close(fd_); }

void store_waker::wake() const { eventfd_write(fd_, 1); }

namespace {

std::unique_ptr<store> open_file(const store_options &how, const store_waker &waker,
                                 const std::optional<pmk_cipher> &cipher) {
    const retention kept = {.age = std::chrono::days(how.history_days), .size = std::uint64_t{how.history_mib} << 20};
    return std::make_unique<sqlite_store>(sqlite_settings{.file = how.file,
                                                          .cipher = cipher,
                                                          .kept = kept,
                                                          .wake = [&waker] { waker.wake(); },
                                                          .now = memory_store::now_on_system_clock,
                                                          .vfs = ""});
}

}  // namespace

std::unique_ptr<store> open_store(const store_options &how, store_waker &waker,
                                  const std::function<void(const std::string &)> &note) {
    if (how.file.empty()) {
        return std::make_unique<memory_store>();
    }
    std::optional<pmk_cipher> cipher;
    if (how.key_file.empty()) {
        note("no --store-key: PMKs are kept in memory only");
    } else {
        cipher = pmk_cipher::read(how.key_file);
    }
    std::unique_ptr<store> made;
    try {
        made = open_file(how, waker, cipher);
        static_cast<void>(made->load());
    } catch (const store_damaged &error) {
        if (!how.set_aside) {
            throw;
        }
        made.reset();
        note(error.what());
        note("set aside as " + set_aside_store(how.file) + "; beginning with an empty store");
        made = open_file(how, waker, cipher);
    }
    waker.serve(*made);
    return made;
}

}  // namespace controller
