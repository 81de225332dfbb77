#include "controller/api/sessions.h"

#include <algorithm>

#include "controller/password_hash.h"

namespace controller::api {

bool sessions::has_ended(const session &one, steady_time now) {
    return now - one.used > idle_max || now - one.opened > age_max;
}

std::string sessions::open(const std::string &name, steady_time now) {
    std::erase_if(sessions_, [&](const auto &each) { return has_ended(each.second, now); });
    if (sessions_.size() >= sessions_max) {
        sessions_.erase(std::ranges::min_element(sessions_, {}, [](const auto &each) { return each.second.used; }));
    }
    std::string key = random_secret();
    sessions_[fingerprint(key)] = {.name = name, .csrf = random_secret(), .opened = now, .used = now};
    return key;
}

const sessions::session *sessions::find(const std::string &key, steady_time now) {
    const auto found = sessions_.find(fingerprint(key));
    if (found == sessions_.end()) {
        return nullptr;
    }
    if (has_ended(found->second, now)) {
        sessions_.erase(found);
        return nullptr;
    }
    found->second.used = now;
    return &found->second;
}

void sessions::close(const std::string &key) { sessions_.erase(fingerprint(key)); }

void sessions::close_all_of(const std::string &name) {
    std::erase_if(sessions_, [&](const auto &each) { return each.second.name == name; });
}

}  // namespace controller::api
