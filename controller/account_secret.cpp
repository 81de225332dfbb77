#include "controller/account_secret.h"

#include <termios.h>
#include <unistd.h>

#include <iostream>
#include <stdexcept>

#include "controller/password_hash.h"

namespace controller {

namespace {

constexpr std::size_t password_min = 8;
constexpr std::size_t password_max = 256;

// The terminal does not show what is typed while the object lives.
class silent_terminal {
public:
    silent_terminal() {
        tcgetattr(STDIN_FILENO, &before_);
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    ~silent_terminal() { tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_); }
    silent_terminal(const silent_terminal &) = delete;
    silent_terminal &operator=(const silent_terminal &) = delete;

private:
    termios before_{};
};

std::string read_line(const char *prompt) {
    std::cerr << prompt << std::flush;
    std::string line;
    std::getline(std::cin, line);
    std::cerr << '\n';
    return line;
}

std::string read_password() {
    std::string password;
    if (isatty(STDIN_FILENO) != 0) {
        const silent_terminal silent;
        password = read_line("Password: ");
        if (read_line("The same again: ") != password) {
            throw std::runtime_error("the two passwords differ");
        }
    } else {
        std::getline(std::cin, password);
    }
    if (password.size() < password_min || password.size() > password_max) {
        throw std::runtime_error("a password has " + std::to_string(password_min) + " to " +
                                 std::to_string(password_max) + " bytes");
    }
    return password;
}

}  // namespace

account_secret make_account_secret(std::string_view name) {
    if (name == "operator-add") {
        return {{hash_secret(read_password(), hash_cost::password)}, ""};
    }
    if (name == "token-add") {
        const std::string id = random_id();
        const std::string secret = random_secret();
        return {{id, hash_secret(secret, hash_cost::secret)}, id + '.' + secret};
    }
    return {};
}

}  // namespace controller
