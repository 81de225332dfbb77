// The log file is $KX_ROOT/log/<name>.log. The configuration record is the six words of kx_log_conf, big-endian.
#include "kx/kx_log.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "common/console.h"
#include "common/hardening.h"
#include "common/paths.h"
#include "common/permissions.h"
#include "platform/linux/log_file.h"
#include "platform/linux/port_losses.h"
#include "platform/linux/start_failure.h"
#include "wire/big_endian.h"

kx_log_conf kx_log_conf_data;
FILE *log_file_name;
uint32_t cur_log_size;

namespace {

constexpr int level_min = -1;
constexpr int level_max = 9;
constexpr std::uint32_t file_size_default = 1u << 20;
constexpr std::uint32_t file_size_min = 4096;
constexpr std::uint32_t file_size_max = 1u << 30;

struct log_cfg_record {
    be32 word0, word1, level, console, word4, max_file_size;
};
static_assert(sizeof(log_cfg_record) == 24);

// The level in $KX_LOG_LEVEL, or `asked_for` when that is not set. Throws std::runtime_error when it is not a level.
int initial_level(int asked_for) {
    const char *text = std::getenv("KX_LOG_LEVEL");
    if (text == nullptr || *text == '\0') {
        return asked_for;
    }
    int level = 0;
    auto [end, error] = std::from_chars(text, text + std::strlen(text), level);
    if (error != std::errc() || *end != '\0' || level < level_min || level > level_max) {
        throw std::runtime_error("KX_LOG_LEVEL=" + std::string(text) + ": a level from -1 to 9 was expected");
    }
    return level;
}

std::string file_of(const char *program) {
    std::string directory = kx::place("/log");
    kx::make_private_directories(directory);
    std::string name(program);
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    return directory + "/" + name + ".log";
}

}  // namespace

int KX_LOG_INIT(const char *name, int level, int) {
    // The daemon calls this before any other service. Neither its tables nor its messages exist yet.
    // Until the event loop handles them.
    std::signal(SIGHUP, SIG_IGN);
    std::signal(SIGUSR1, SIG_IGN);
    kx::never_wait_for_reader(STDOUT_FILENO);
    kx::harden_process();
    try {
        kx::require_safe_root();
        kx_log_conf_data.level = initial_level(level);
        kx_log_conf_data.max_file_size = file_size_default;
        // A line may show a key, which must not stay in a stream's buffer.
        setvbuf(stdout, nullptr, _IONBF, 0);
        kx::process_log().open(file_of(name));
        return 0;
    } catch (const std::exception &error) {
        kx::report_start_failure(error.what());
        return -1;
    }
}

void KX_LOG_GET_CFG(void *body) {
    const kx_log_conf &conf = kx_log_conf_data;
    log_cfg_record record{};
    record.word0 = conf.word0;
    record.word1 = conf.word1;
    record.level = static_cast<std::uint32_t>(conf.level);
    record.console = conf.console;
    record.word4 = conf.word4;
    record.max_file_size = conf.max_file_size;
    std::memcpy(body, &record, sizeof(record));
}

void KX_LOG_SET_CFG(const void *payload) {
    log_cfg_record record{};
    std::memcpy(&record, payload, sizeof(record));
    kx_log_conf conf{record.word0,   record.word1, static_cast<std::int32_t>(std::uint32_t{record.level}),
                     record.console, record.word4, record.max_file_size};
    if (conf.level < level_min || conf.level > level_max || conf.console > 1 || conf.max_file_size < file_size_min ||
        conf.max_file_size > file_size_max) {
        kx::port_losses().add_described(kx::loss_malformed, [&conf] {
            return "log configuration refused: level " + std::to_string(conf.level) + ", console " +
                   std::to_string(conf.console) + ", file size " + std::to_string(conf.max_file_size);
        });
        return;
    }
    kx_log_conf_data = conf;
}
