// How every program of the lab ends when its command line says so.
#ifndef COMMON_COMMAND_LINE_H
#define COMMON_COMMAND_LINE_H

#include <sysexits.h>

#include <CLI/CLI.hpp>
#include <optional>

namespace kx {

// The exit status when the program is to end at once: 0 after --help or --version, EX_USAGE when the command line is
// wrong, which standard error then says. None when it is to run.
inline std::optional<int> parse_command_line(CLI::App &options, int argc, char **argv) {
    try {
        options.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::ParseError &error) {
        return options.exit(error) == 0 ? EX_OK : EX_USAGE;
    }
}

}  // namespace kx

#endif
