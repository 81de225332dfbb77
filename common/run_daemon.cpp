#include "common/run_daemon.h"

#include <sysexits.h>

#include <cstdio>
#include <exception>

#include "common/toml_table.h"

namespace kx {

int run_daemon(const char *name, int (*run)(int argc, char **argv), int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const config_error &error) {
        std::fprintf(stderr, "%s: %s\n", name, error.what());
        return EX_CONFIG;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s: %s\n", name, error.what());
        return EX_OSERR;
    }
}

}  // namespace kx
