// The numbers of MAC ACL questions. The daemon and the controller keep a question's number with its verdict, and a
// verdict that changes later comes with the number too.
#ifndef RADIOD_ACL_QUESTIONS_H
#define RADIOD_ACL_QUESTIONS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <random>
#include <utility>

#include "common/mac_address.h"

namespace radiod {

using kx::mac_address;

// A station has one number on a VAP, so that any verdict answers its present question. Numbers start at random: one of
// an earlier process belongs to no station.
class acl_questions {
public:
    static constexpr std::size_t most = 4096;  // the oldest go first

    struct subject {
        mac_address station{}, bssid{};
        auto operator<=>(const subject &) const = default;
    };

    std::uint32_t number_of(const subject &who) {
        const auto [place, is_new] = numbers_.try_emplace(who, next_);
        if (is_new) {
            ++next_;
            in_order_.push_back(place->second);
            subjects_.emplace(place->second, who);
            if (in_order_.size() > most) {
                forget_oldest();
            }
        }
        return place->second;
    }
    std::optional<subject> find(std::uint32_t number) const {
        const auto found = subjects_.find(number);
        return found == subjects_.end() ? std::nullopt : std::optional(found->second);
    }

private:
    void forget_oldest() {
        const auto oldest = subjects_.find(in_order_.front());
        numbers_.erase(oldest->second);
        subjects_.erase(oldest);
        in_order_.pop_front();
    }

    std::uint32_t next_ = std::random_device{}();
    std::map<subject, std::uint32_t> numbers_;
    std::map<std::uint32_t, subject> subjects_;
    std::deque<std::uint32_t> in_order_;
};

}  // namespace radiod

#endif
