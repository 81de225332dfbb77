#include "controller/store/memory_store.h"

#include <algorithm>

namespace controller {

namespace {

constexpr const char *nothing_kept = "the controller runs without a store; start it with --store FILE";

template <typename T, typename Is>
std::vector<T> page_from(const std::deque<T> &all, const page_of &page, Is is_wanted) {
    std::vector<T> found;
    const std::size_t limit = std::min(page.limit, page_limit_max);
    for (auto at = all.rbegin(); at != all.rend() && found.size() < limit; ++at) {
        if ((!page.before || at->number < *page.before) && is_wanted(*at)) {
            found.push_back(*at);
        }
    }
    return found;
}

template <typename T>
void add_bounded(std::deque<T> &to, T one, std::size_t entries_max) {
    to.push_back(std::move(one));
    if (to.size() > entries_max) {
        to.pop_front();
    }
}

}  // namespace

wall_time memory_store::now_on_system_clock() {
    return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

void memory_store::add(wall_time at, const change &one) {
    if (const auto *client = std::get_if<client_change>(&one); client && client->what != client_event::corrected) {
        add_bounded(history_, {++history_number_, at, client->mac, client->what, client->state.now, client->state.ip},
                    entries_max_);
    } else if (const auto *entry = std::get_if<audit_entry>(&one)) {
        add_bounded(audit_, {++audit_number_, at, *entry}, entries_max_);
    }
}

void memory_store::write(std::span<const change> changes) {
    const wall_time at = now_();
    const std::lock_guard lock(mutex_);
    for (const change &each : changes) {
        add(at, each);
    }
}

void memory_store::write(std::span<const change> changes, callback done) {
    write(changes);
    done("");
}

std::vector<history_entry> memory_store::history(const std::optional<mac_address> &of, const page_of &page) const {
    const std::lock_guard lock(mutex_);
    return page_from(history_, page, [&](const history_entry &each) { return !of || each.mac == *of; });
}

std::vector<audit_record> memory_store::audit(const page_of &page) const {
    const std::lock_guard lock(mutex_);
    return page_from(audit_, page, [](const audit_record &) { return true; });
}

void memory_store::backup(const std::string &, callback done) { done(nothing_kept); }

void memory_store::export_to(const std::string &, callback done) { done(nothing_kept); }

void memory_store::restore(const std::string &, callback done) { done(nothing_kept); }

}  // namespace controller
