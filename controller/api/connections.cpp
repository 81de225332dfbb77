#include "controller/api/connections.h"

#include <event2/bufferevent_ssl.h>
#include <event2/event.h>
#include <netdb.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <map>

namespace controller::api {

namespace {

constexpr std::size_t input_max =
    std::size_t{64} * 1024;  // bytes not yet looked at; more than headers or body may have

// Empty when it is not known.
std::string address_of(int fd) {
    sockaddr_storage address{};
    socklen_t length = sizeof(address);
    char host[NI_MAXHOST];
    const auto *generic = reinterpret_cast<const sockaddr *>(&address);
    const bool known = fd >= 0 && getpeername(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0 &&
                       getnameinfo(generic, length, host, sizeof(host), nullptr, 0, NI_NUMERICHOST) == 0;
    return known ? host : "";
}

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

// The oldest that is not welcome, or the oldest.
void connections::close_one(const std::vector<connection *> &among) {
    const auto stranger = std::ranges::find_if(among, [](const connection *each) { return !each->welcome; });
    close(**(stranger != among.end() ? stranger : among.begin()));
}

void connections::make_room() {
    limit_addresses();
    std::vector<connection *> open;
    for (connection &each : *table_) {
        if (!is_closing(each)) {
            open.push_back(&each);
        }
    }
    if (open.size() >= limits_.count) {
        close_one(open);
    }
}

// evhttp gives a connection its socket only after make().
void connections::limit_addresses() {
    std::map<std::string, std::vector<connection *>> open;
    for (connection &each : *table_) {
        if (each.address.empty()) {
            each.address = address_of(bufferevent_getfd(each.transport));
        }
        if (!is_closing(each) && !each.address.empty()) {
            open[each.address].push_back(&each);
        }
    }
    for (const auto &[address, all] : open) {
        if (all.size() > limits_.of_address) {
            close_one(all);
        }
    }
}

void connections::tick() {
    limit_addresses();
    const auto now = std::chrono::steady_clock::now();
    for (connection &each : *table_) {
        if (!each.streams && each.deadline <= now) {
            close(each);
        }
    }
}

}  // namespace controller::api
