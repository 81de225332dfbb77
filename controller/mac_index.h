// MAC addresses in order. They lie in sorted blocks, so that a search or a change touches few cache lines and an
// address takes little more than its six bytes.
#ifndef CONTROLLER_MAC_INDEX_H
#define CONTROLLER_MAC_INDEX_H

#include <cstddef>
#include <iterator>
#include <map>
#include <vector>

#include "common/mac_address.h"

namespace controller {

class mac_index {
    using block = std::vector<kx::mac_address>;
    using block_map = std::map<kx::mac_address, block>;  // by an address that is not above the block's first one

public:
    // Any change of the index invalidates it.
    class iterator {
    public:
        using iterator_category = std::bidirectional_iterator_tag;
        using value_type = kx::mac_address;
        using difference_type = std::ptrdiff_t;
        using pointer = const kx::mac_address *;
        using reference = const kx::mac_address &;

        iterator() = default;
        reference operator*() const { return in_->second[at_]; }
        iterator &operator++();
        iterator operator++(int) {
            iterator before = *this;
            ++*this;
            return before;
        }
        iterator &operator--();
        iterator operator--(int) {
            iterator before = *this;
            --*this;
            return before;
        }
        bool operator==(const iterator &) const = default;

    private:
        friend class mac_index;
        // `at` may be the end of the block.
        iterator(block_map::const_iterator in, block_map::const_iterator end, std::size_t at);

        block_map::const_iterator in_{}, end_{};
        std::size_t at_ = 0;
    };

    bool insert(const kx::mac_address &added);   // false when it is there already
    bool erase(const kx::mac_address &removed);  // false when it is not there
    bool contains(const kx::mac_address &sought) const;
    std::size_t size() const { return size_; }

    iterator begin() const { return {blocks_.begin(), blocks_.end(), 0}; }
    iterator end() const { return {blocks_.end(), blocks_.end(), 0}; }
    // The first address that is not below `sought`, or that is above it.
    iterator lower_bound(const kx::mac_address &sought) const;
    iterator upper_bound(const kx::mac_address &sought) const;

private:
    block_map::const_iterator block_of(const kx::mac_address &sought) const;
    block_map::iterator block_for(const kx::mac_address &added);
    void split(block_map::iterator full);

    block_map blocks_;  // none is empty
    std::size_t size_ = 0;
};

}  // namespace controller

#endif
