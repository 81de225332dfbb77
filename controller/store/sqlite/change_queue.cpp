#include "controller/store/sqlite/change_queue.h"

#include <algorithm>
#include <iterator>
#include <random>

namespace controller::sqlite {

namespace {

bool is_of_snapshot(const change &one) {
    return std::holds_alternative<client_change>(one) || std::holds_alternative<pmk_change>(one);
}

}  // namespace

change_queue::change_queue(std::size_t limit, std::size_t reserve)
    : limit_(limit), reserve_(reserve), next_number_(std::random_device()()) {
    next_number_ = next_number_ << 24;
}

batch &change_queue::last() {
    if (batches_.empty() || sealed_ || !batches_.back().restore_from.empty()) {
        batches_.emplace_back().number = next_number_++;
        sealed_ = false;
    }
    return batches_.back();
}

void change_queue::push(const change &one, wall_time at) {
    if (const auto *of_client = std::get_if<client_change>(&one)) {
        last().clients.push_back({at, *of_client});
    } else {
        last().others.emplace_back(at, one);
    }
    size_++;
}

void change_queue::add(std::span<const change> changes, wall_time at) {
    for (const change &each : changes) {
        const bool has_room = size_ < (is_of_snapshot(each) ? limit_ : limit_ + reserve_);
        if (has_room && !(overflowed_ && is_of_snapshot(each))) {
            push(each, at);
            continue;
        }
        overflowed_ = overflowed_ || is_of_snapshot(each);
        const auto *of_client = std::get_if<client_change>(&each);
        history_lost_ += of_client != nullptr && of_client->what != client_event::corrected ? 1 : 0;
    }
}

bool change_queue::add(std::span<const change> changes, wall_time at, store::callback done) {
    if (size_ + changes.size() > limit_ + reserve_) {
        return false;
    }
    for (const change &each : changes) {
        push(each, at);
    }
    last().waiting.push_back(std::move(done));
    waiting_++;
    return true;
}

void change_queue::add(snapshot replacement) {
    sealed_ = true;
    last().replacement = std::move(replacement);
    overflowed_ = false;
}

void change_queue::add_restore(const std::string &file, store::callback done) {
    sealed_ = true;
    batch &alone = last();
    alone.restore_from = file;
    alone.waiting.push_back(std::move(done));
    waiting_++;
}

bool change_queue::wants_snapshot() const {
    const auto is_snapshot = [](const batch &each) { return each.replacement.has_value(); };
    return overflowed_ && size_ < limit_ / 2 && std::ranges::none_of(batches_, is_snapshot);
}

const batch &change_queue::first() {
    sealed_ = sealed_ || batches_.size() == 1;
    return batches_.front();
}

void change_queue::drop_first() {
    waiting_ -= batches_.front().waiting.size();
    size_ -= batches_.front().size();
    batches_.pop_front();
    sealed_ = sealed_ && !batches_.empty();
}

std::vector<store::callback> change_queue::take_waiting_for_first() {
    waiting_ -= batches_.front().waiting.size();
    return std::exchange(batches_.front().waiting, {});
}

std::vector<store::callback> change_queue::take_waiting() {
    std::vector<store::callback> all;
    for (batch &each : batches_) {
        std::ranges::move(std::exchange(each.waiting, {}), std::back_inserter(all));
    }
    waiting_ = 0;
    return all;
}

}  // namespace controller::sqlite
