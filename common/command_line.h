// The command line of a program.
#ifndef COMMON_COMMAND_LINE_H
#define COMMON_COMMAND_LINE_H

#include <sysexits.h>

#include <CLI/CLI.hpp>
#include <optional>

namespace kx {

// Returns the exit status when the program is to exit at once: 0 after --help or --version, EX_USAGE after an error,
// which is written to standard error. Returns none when the program is to run.
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
