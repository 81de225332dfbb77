// Runs a fuzz target on the given inputs, for compilers and machines without libFuzzer.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "input.h"

namespace {

namespace fs = std::filesystem;

constexpr int EXIT_USAGE = 64;

constexpr char HELP[] =
    "Usage: %s FILE|DIRECTORY...\n"
    "Runs the target on each file, and on each file of each directory. It has passed when this ends with status 0; a\n"
    "fault ends it with the input's name as the last line before the fault's.\n"
    "\n"
    "  --help     show this text and exit\n"
    "  --version  show the version and exit\n";

[[noreturn]] void stop(const std::string &what) {
    fprintf(stderr, "%s\n", what.c_str());
    exit(EXIT_USAGE);
}

void run(const fs::path &file) {
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> content{std::istreambuf_iterator<char>(stream), {}};
    if (!stream) {
        stop("cannot read " + file.string());
    }
    const std::unique_ptr<uint8_t[]> copy(new uint8_t[content.size()]);
    std::copy(content.begin(), content.end(), copy.get());
    fprintf(stderr, "%s\n", file.c_str());
    fuzz_one({copy.get(), content.size()});
}

size_t run_all(const fs::path &place) {
    if (!fs::is_directory(place)) {
        run(place);
        return 1;
    }
    size_t inputs = 0;
    for (const fs::directory_entry &each : fs::recursive_directory_iterator(place)) {
        if (each.is_regular_file()) {
            run(each.path());
            inputs++;
        }
    }
    if (inputs == 0) {
        stop("no inputs in " + place.string());
    }
    return inputs;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        printf(HELP, argv[0]);
        return EXIT_SUCCESS;
    }
    if (argc == 2 && strcmp(argv[1], "--version") == 0) {
        printf("%s " CLIENT_MGR_VERSION "\n", fs::path(argv[0]).filename().c_str());
        return EXIT_SUCCESS;
    }
    if (argc < 2 || argv[1][0] == '-') {
        stop(std::string("usage: ") + argv[0] + " FILE|DIRECTORY...; see --help");
    }
    size_t inputs = 0;
    for (int i = 1; i < argc; i++) {
        inputs += run_all(argv[i]);
    }
    fprintf(stderr, "%zu inputs passed\n", inputs);
    return EXIT_SUCCESS;
}
