// The program. Its command line has only --help and --version.

#include <cstdio>
#include <cstring>

#include "client_mgr/startup.h"

namespace {

constexpr int exit_usage = 64;

constexpr char help[] =
    "Usage: client_mgr\n"
    "The client manager daemon of a wireless access point. It takes no arguments: the\n"
    "platform provides its configuration. Runs in the foreground until it is killed.\n"
    "\n"
    "  --help     show this text and exit\n"
    "  --version  show the version and exit\n";

}  // namespace

int main(int argc, char **argv) {
    if (argc == 1) {
        return client_mgr_main();
    }
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(help, stdout);
        return 0;
    }
    if (argc == 2 && strcmp(argv[1], "--version") == 0) {
        puts("client_mgr " CLIENT_MGR_VERSION);
        return 0;
    }
    fprintf(stderr, "client_mgr: unexpected argument '%s'; it takes none but --help or --version\n", argv[1]);
    return exit_usage;
}
