// The commands of apctl.
#ifndef APCTL_COMMANDS_H
#define APCTL_COMMANDS_H

#include <optional>
#include <string>

namespace apctl {

inline constexpr int exit_fault = 1;
inline constexpr int exit_unreachable = 2;

struct options {
    bool json = false;
    std::string config;        // of the access point
    std::string client;        // as given
    bool follow = false;       // the log
    std::optional<int> level;  // of the log
    std::string textfile;      // for the metrics
    bool serve = false;        // them over HTTP
};

struct command {
    const char *name, *help;
    int (*run)(const options &);  // returns the exit status; throws unreachable and other exceptions
};

int status(const options &chosen);
int clients(const options &chosen);
int client(const options &chosen);
int vaps(const options &chosen);
int watch(const options &chosen);
int log(const options &chosen);
int level(const options &chosen);
int stats(const options &chosen);
int check(const options &chosen);
int metrics(const options &chosen);

}  // namespace apctl

#endif
