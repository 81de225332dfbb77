// Reads what a daemon shows of itself (wire/view.h).
#ifndef APCTL_VIEW_READER_H
#define APCTL_VIEW_READER_H

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "wire/view.h"

namespace apctl {

struct shown {
    std::map<std::string, std::uint64_t> numbers;
    std::map<std::string, std::string> texts;
    std::vector<kx::view_vap> vaps;
    std::map<mac_address, kx::view_client> clients;

    std::uint64_t number(const std::string &name) const;  // 0 when it is not there
    std::string text(const std::string &name) const;      // empty when it is not there
};

// Bytes that are no answer.
struct malformed_view : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class view_reader {
public:
    // Records of unknown kinds are skipped. Throws malformed_view, also when the answer is too long.
    void feed(std::span<const std::uint8_t> bytes);
    // The whole answer that was received first, if there is one.
    std::optional<shown> take();

private:
    void record(kx::view_kind kind, std::span<const std::uint8_t> body);

    std::vector<std::uint8_t> rest_;
    shown begun_;
    std::size_t records_ = 0;  // of begun_
    std::vector<shown> whole_;
};

}  // namespace apctl

#endif
