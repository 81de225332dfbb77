#include "controller/api/connections.h"

#include <event2/bufferevent_ssl.h>
#include <event2/event.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>

namespace controller::api {

namespace {

constexpr std::size_t input_max =
    std::size_t{64} * 1024;  // bytes not yet looked at; more than headers or body may have

}  // namespace

struct connections::entry {
    std::shared_ptr<table> in;
    table::iterator at;
};

// The place in an SSL object where its entry is. OpenSSL frees the entry with the SSL object, which ends with the
// transport.
int connections::index() {
    static const int made =
        SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, [](void *, void *data, CRYPTO_EX_DATA *, int, long, void *) {
            if (auto *gone = static_cast<entry *>(data)) {
                gone->in->erase(gone->at);
                delete gone;
            }
        });
    return made;
}

bufferevent *connections::make(event_base *base, SSL_CTX *tls) {
    make_room();
    SSL *ssl = SSL_new(tls);
    if (ssl == nullptr) {
        return nullptr;
    }
    const auto at = table_->insert(table_->end(), connection{});
    SSL_set_ex_data(ssl, index(), new entry{table_, at});
    bufferevent *made = bufferevent_openssl_socket_new(base, -1, ssl, BUFFEREVENT_SSL_ACCEPTING, BEV_OPT_CLOSE_ON_FREE);
    if (made == nullptr) {
        SSL_free(ssl);
        return nullptr;
    }
    bufferevent_openssl_set_allow_dirty_shutdown(made, 1);
    bufferevent_setwatermark(made, EV_READ, 0, input_max);
    at->transport = made;
    at->deadline = std::chrono::steady_clock::now() + limits_.request_time;
    return made;
}

connections::connection &connections::of(bufferevent *transport) {
    return *static_cast<entry *>(SSL_get_ex_data(bufferevent_openssl_get_ssl(transport), index()))->at;
}

// evhttp notices the end of the socket, and frees the connection.
void connections::close(connection &one) {
    one.deadline = steady_time::max();
    one.streams = false;
    shutdown(bufferevent_getfd(one.transport), SHUT_RDWR);
}

void connections::make_room() {
    const auto closing = [](const connection &each) { return each.deadline == steady_time::max(); };
    const auto open = table_->size() - static_cast<std::size_t>(std::ranges::count_if(*table_, closing));
    if (open < limits_.count) {
        return;
    }
    const auto stranger =
        std::ranges::find_if(*table_, [&](const connection &each) { return !each.welcome && !closing(each); });
    const auto victim = stranger != table_->end() ? stranger : std::ranges::find_if_not(*table_, closing);
    close(*victim);
}

void connections::tick() {
    const auto now = std::chrono::steady_clock::now();
    for (connection &each : *table_) {
        if (!each.streams && each.deadline <= now) {
            close(each);
        }
    }
}

}  // namespace controller::api
