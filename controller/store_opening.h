// The store that the controller's options choose, and its place in the event loop.
#ifndef CONTROLLER_STORE_OPENING_H
#define CONTROLLER_STORE_OPENING_H

#include <functional>
#include <memory>
#include <string>

#include "common/events.h"
#include "controller/store/store.h"
#include "controller/store_options.h"

namespace controller {

// Calls deliver() of a store in the event loop's thread when it asks for that in another one.
class store_waker {
public:
    explicit store_waker(event_base *base);
    ~store_waker();
    store_waker(const store_waker &) = delete;
    store_waker &operator=(const store_waker &) = delete;

    void serve(store &of) { store_ = &of; }
    void wake() const;  // from any thread

private:
    int fd_;
    store *store_ = nullptr;
    kx::watch woken_;
};

// `waker` must outlive the store. Throws store_error.
std::unique_ptr<store> open_store(const store_options &how, store_waker &waker,
                                  const std::function<void(const std::string &)> &note);

}  // namespace controller

#endif
