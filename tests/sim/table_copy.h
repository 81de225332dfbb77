// A copy of a table's whole state: the clients' or the ACL cache's.
#ifndef TESTS_SIM_TABLE_COPY_H
#define TESTS_SIM_TABLE_COPY_H

#include <array>
#include <cstdint>

#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_tbl.h"

namespace sim {

// Of the table whose slots are a client_info or an acl_cache_entry.
template <class Slot>
class table_copy {
public:
    bool is_taken() const { return taken_; }
    void take();
    // The table becomes what it was when the copy was taken.
    void put_back() const;
    // Whether the table is what it was then.
    bool is_current() const;

private:
    static constexpr int SIZE = 2048;

    bool taken_ = false;
    Slot slots_[SIZE];
    int32_t buckets_[SIZE];
    std::array<int32_t, 3> heads_;
};

extern template class table_copy<client_info>;
extern template class table_copy<acl_cache_entry>;

}  // namespace sim

#endif
