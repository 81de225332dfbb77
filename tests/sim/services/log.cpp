#include "services/log.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "effects.h"
#include "inside.h"
#include "kx/kx_log.h"
#include "platform.h"
#include "services/names.h"

kx_log_conf kx_log_conf_data;
FILE *log_file_name;
uint32_t cur_log_size;

namespace sim {
namespace {

constexpr uint32_t MAX_LOG_SIZE = 1u << 30;

}  // namespace

log_service::log_service() : real_stdout_(stdout) {
    kx_log_conf_data = {.word0 = 0, .word1 = 0, .level = -1, .console = 0, .word4 = 0, .max_file_size = MAX_LOG_SIZE};
    cur_log_size = 0;
    log_file_name = nullptr;
}

void log_service::open_log() {
    const cookie_io_functions_t functions = {nullptr, log_written, log_seeked, nullptr};
    log_stream_ = fopencookie(this, "w", functions);
    setvbuf(log_stream_, log_room_, _IOFBF, sizeof(log_room_));
    log_file_name = log_stream_;
}

void log_service::close_log() {
    log_file_name = nullptr;
    if (log_stream_ != nullptr) {
        fclose(log_stream_);
    }
    log_stream_ = nullptr;
}

ssize_t log_service::log_written(void *self, const char *data, size_t len) {
    const outside daemon;
    return static_cast<log_service *>(self)->write_log({data, len}) ? static_cast<ssize_t>(len) : 0;
}

int log_service::log_seeked(void *, off64_t *offset, int whence) {
    const outside daemon;
    if (whence == SEEK_SET && *offset == 0) {
        here().record("log rewound");
    }
    return 0;
}

// Checks that one write is one line: the prefix with the real-time clock's time, the text, a newline. Returns
// whether the write succeeds.
bool log_service::write_log(std::string_view chunk) {
    // The seconds in this machine's clock type.
    char text_of_now[40];
    const auto length = static_cast<size_t>(snprintf(
        text_of_now, sizeof text_of_now, ":%lld:%d: ", static_cast<long long>(static_cast<time_t>(here().wall_secs())),
        static_cast<int>(here().wall_usecs % 1000000 / 1000)));
    const std::string_view prefix(text_of_now, length);
    if (chunk.substr(0, prefix.size()) != prefix || chunk.back() != '\n') {
        here().complain("not one whole line of this moment in one write: " + escaped(chunk));
        return true;
    }
    if (here().outcome("log", 0) != 0) {
        return false;
    }
    const std::string_view text = chunk.substr(prefix.size(), chunk.size() - prefix.size() - 1);
    std::string effect = escaped(without_source_line(std::string(text)));
    effect.insert(0, "log: ");
    here().effects.push_back(std::move(effect));
    return true;
}

ssize_t log_service::console_written(void *self, const char *data, size_t len) {
    const outside daemon;
    static_cast<log_service *>(self)->write_console({data, len});
    return static_cast<ssize_t>(len);
}

void log_service::write_console(std::string_view chunk) {
    for (char c : chunk) {
        if (c != '\n') {
            console_line_ += c;
            continue;
        }
        here().record("console: " + escaped(without_source_line(console_line_)));
        console_line_.clear();
    }
}

void log_service::take_stdout() {
    const cookie_io_functions_t functions = {nullptr, console_written, nullptr, nullptr};
    stdout = fopencookie(this, "w", functions);
    setvbuf(stdout, console_room_, _IOFBF, sizeof(console_room_));
}

void log_service::lend_stdout() {
    fclose(stdout);
    stdout = real_stdout_;
}

void log_service::end_console_line() {
    if (!console_line_.empty()) {
        here().record("console without newline: " + escaped(console_line_));
    }
    console_line_.clear();
}

extern "C" {

int KX_LOG_INIT(const char *name, int level, int flags) {
    const outside daemon;
    const int result = here().recorded(
        "KX_LOG_INIT", "KX_LOG_INIT(" + std::string(name) + ", " + number(level) + ", " + number(flags) + ")", 0);
    if (result == 0) {
        here().open_log();
        kx_log_conf_data.console = 1;
    }
    return result;
}

void KX_LOG_GET_CFG(void *body) {
    const outside daemon;
    here().outcome("KX_LOG_GET_CFG", 0);
    for (size_t i = 0; i < KX_LOG_CFG_BODY_SIZE; i++) {
        if (static_cast<uint8_t *>(body)[i] != 0) {
            here().complain("the body for KX_LOG_GET_CFG is not zero");
            break;
        }
    }
    std::copy(here().log_cfg.begin(), here().log_cfg.end(), static_cast<uint8_t *>(body));
}

void KX_LOG_SET_CFG(const void *payload) {
    const outside daemon;
    here().record("KX_LOG_SET_CFG(" + show(static_cast<const uint8_t *>(payload), 24) + ")");
}

}  // extern "C"

}  // namespace sim
