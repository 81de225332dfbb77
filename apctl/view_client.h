// A connection to a daemon that shows itself (wire/view.h).
#ifndef APCTL_VIEW_CLIENT_H
#define APCTL_VIEW_CLIENT_H

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "apctl/view_reader.h"

namespace apctl {

// The daemon does not run, may not be asked, or does not answer. The text says which.
struct unreachable : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class view_client {
public:
    // Sends the request. `platform_path` is one of wire/view.h. Throws unreachable.
    view_client(std::string_view platform_path, std::string_view request);
    ~view_client();
    view_client(const view_client &) = delete;
    view_client &operator=(const view_client &) = delete;

    int fd() const { return fd_; }
    // Receives once, and returns an answer that is whole now. Waits at most 10 s. Throws unreachable, also when the
    // daemon has closed the connection.
    std::optional<shown> receive();

private:
    [[noreturn]] void fail(const std::string &why) const;

    std::string path_;
    int fd_;
    view_reader reader_;
};

// One answer. Throws unreachable.
shown ask(std::string_view platform_path, std::string_view request);

}  // namespace apctl

#endif
