// The site and its store.
#include <utility>

#include "controller/exchange.h"

namespace controller {

void exchange::use(store &kept) {
    store_ = &kept;
    if (site_) {
        load(kept.load());
    }
}

void exchange::load(const contents &from) {
    site_->load(from);
    load_enrolments(from);
    site_->record_changes();
    if (observers_.contents) {
        observers_.contents(from);
    }
}

// Empties the lists.
std::vector<change> exchange::take_changes() {
    std::vector<change> changes = std::exchange(own_changes_, {});
    if (site_) {
        changes.insert(changes.end(), site_->changes().begin(), site_->changes().end());
        site_->forget_changes();
    }
    if (observers_.changes) {
        observers_.changes(changes);
    }
    return changes;
}

void exchange::store_changes() {
    const bool any = !own_changes_.empty() || (site_ && !site_->changes().empty());
    if (store_ != nullptr && any) {
        store_->write(take_changes());
    }
}

void exchange::commit(std::vector<change> more, store::callback done) {
    if (store_ == nullptr) {
        done("");
        return;
    }
    std::vector<change> changes = take_changes();
    changes.insert(changes.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
    store_->write(changes, std::move(done));
}

void exchange::tend_store() {
    store_changes();
    if (store_ == nullptr) {
        return;
    }
    if (site_ && store_->wants_snapshot()) {
        output_.note(
            "writing all clients to the store anew, because changes were dropped while it could not be written");
        store_->write_snapshot(site_->all_clients(), site_->all_pmks());
    }
    const std::string fault = store_->status().fault;
    if (std::exchange(store_fault_, fault) != fault) {
        output_.note(fault.empty() ? "the store is written again"
                                   : fault + "; serving from memory, and writing it as soon as possible");
    }
}

void exchange::restore(const std::string &file, store::callback done) {
    if (store_ == nullptr || !site_) {
        done("there is no store to restore");
        return;
    }
    store_->restore(file, [this, done = std::move(done)](const store::result &why) {
        std::string how = why;
        try {
            if (why.empty()) {
                start_over();
            }
        } catch (const store_error &error) {
            how = error.what();
        }
        done(how);
    });
}

// Changes that the former site gave after the backup was restored are overwritten by the snapshot.
void exchange::start_over() {
    const contents restored = store_->load();
    site_.emplace();
    load(restored);
    const auto links = access_points_.links();  // one that does not read its messages is closed meanwhile
    for (const auto &[id, link] : links) {
        identify_certificate(link.other);
        if (link.ap) {
            site_->ap_up(*link.ap);
            tunnels_->send(id, encode({}, record(record_type::req_bulk_info)));
        }
        if (link.ap && link.carrier != 0) {
            send(site_->ap_carries(*link.ap, link.carrier));
        }
    }
    store_->write_snapshot(restored.clients, restored.pmks);
    tunnels_->recheck();
}

}  // namespace controller
