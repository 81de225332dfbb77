// site_controller: the controller of the access points of a site.
#include <sys/resource.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <optional>

#include "controller/daemon.h"
#include "controller/options.h"

namespace {

// Each tunnel takes a descriptor. The soft limit is there for programs that use select(2).
void raise_descriptor_limit() {
    rlimit descriptors{};
    if (getrlimit(RLIMIT_NOFILE, &descriptors) == 0) {
        descriptors.rlim_cur = descriptors.rlim_max;
        setrlimit(RLIMIT_NOFILE, &descriptors);
    }
}

}  // namespace

int main(int argc, char **argv) {
    try {
        controller::options chosen;
        if (const auto status = controller::read_options(argc, argv, chosen)) {
            return *status;
        }
        std::signal(SIGPIPE, SIG_IGN);
        raise_descriptor_limit();
        controller::daemon(chosen, [argc, argv]() -> std::optional<controller::options> {
            controller::options read;
            return controller::read_options(argc, argv, read) ? std::nullopt : std::optional(read);
        }).run();
        return 0;
    } catch (const std::exception &error) {
        std::cerr << "site_controller: " << error.what() << '\n';
        return 1;
    }
}
