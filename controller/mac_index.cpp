#include "controller/mac_index.h"

#include <algorithm>
#include <utility>

namespace controller {

namespace {

constexpr std::size_t block_max = 256;  // addresses

}  // namespace

mac_index::iterator::iterator(block_map::const_iterator in, block_map::const_iterator end, std::size_t at)
    : in_(in), end_(end), at_(at) {
    if (in_ != end_ && at_ == in_->second.size()) {
        ++in_;
        at_ = 0;
    }
}

mac_index::iterator &mac_index::iterator::operator++() {
    *this = iterator(in_, end_, at_ + 1);
    return *this;
}

mac_index::iterator &mac_index::iterator::operator--() {
    if (at_ == 0) {
        --in_;
        at_ = in_->second.size();
    }
    at_--;
    return *this;
}

// The block in which the address is or would be; the first one when it is below all. None when there is no block.
mac_index::block_map::const_iterator mac_index::block_of(const kx::mac_address &sought) const {
    const auto above = blocks_.upper_bound(sought);
    return above == blocks_.begin() ? above : std::prev(above);
}

bool mac_index::contains(const kx::mac_address &sought) const {
    const auto in = block_of(sought);
    return in != blocks_.end() && std::binary_search(in->second.begin(), in->second.end(), sought);
}

bool mac_index::insert(const kx::mac_address &added) {
    const auto in = block_for(added);
    block &to = in->second;
    const auto at = std::lower_bound(to.begin(), to.end(), added);
    if (at != to.end() && *at == added) {
        return false;
    }
    to.insert(at, added);
    size_++;
    if (to.size() > block_max) {
        split(in);
    }
    return true;
}

// The block in which the address belongs, made when there is none.
mac_index::block_map::iterator mac_index::block_for(const kx::mac_address &added) {
    const auto known = block_of(added);
    if (known == blocks_.end()) {
        return blocks_.try_emplace(added).first;
    }
    if (added < known->first) {
        auto first = blocks_.extract(known);
        first.key() = added;
        return blocks_.insert(std::move(first)).position;
    }
    return blocks_.erase(known, known);  // erases nothing: the same block, to be changed
}

void mac_index::split(block_map::iterator full) {
    block &lower = full->second;
    const auto middle = lower.begin() + static_cast<std::ptrdiff_t>(lower.size() / 2);
    blocks_.emplace(*middle, block(middle, lower.end()));
    lower.erase(middle, lower.end());
}

bool mac_index::erase(const kx::mac_address &removed) {
    if (blocks_.empty()) {
        return false;
    }
    const auto in = block_for(removed);
    const auto at = std::lower_bound(in->second.begin(), in->second.end(), removed);
    if (at == in->second.end() || *at != removed) {
        return false;
    }
    in->second.erase(at);
    size_--;
    if (in->second.empty()) {
        blocks_.erase(in);
    }
    return true;
}

mac_index::iterator mac_index::lower_bound(const kx::mac_address &sought) const {
    const auto in = block_of(sought);
    if (in == blocks_.end()) {
        return end();
    }
    const auto at = std::lower_bound(in->second.begin(), in->second.end(), sought);
    return {in, blocks_.end(), static_cast<std::size_t>(at - in->second.begin())};
}

mac_index::iterator mac_index::upper_bound(const kx::mac_address &sought) const {
    iterator at = lower_bound(sought);
    return at != end() && *at == sought ? ++at : at;
}

}  // namespace controller
