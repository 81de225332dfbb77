// The connections of the HTTP server, with what evhttp has no limits for: their number, and the time that a request and
// its answer may take.
#ifndef CONTROLLER_API_CONNECTIONS_H
#define CONTROLLER_API_CONNECTIONS_H

#include <event2/bufferevent.h>

#include <chrono>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "controller/api/sessions.h"

typedef struct ssl_ctx_st SSL_CTX;

namespace controller::api {

class connections {
public:
    struct limits {
        std::size_t count = 128;
        std::size_t of_address = 64;
        std::chrono::milliseconds request_time = std::chrono::seconds(15);  // TLS and a request
        std::chrono::milliseconds answer_time = std::chrono::seconds(30);   // an answer and the next request
        std::chrono::milliseconds silence = std::chrono::seconds(15);       // in which nothing is read or written
    };

    struct connection {
        bufferevent *transport = nullptr;
        std::string address = {};  // of the other end; empty until it is looked at
        steady_time deadline{};    // by which it is closed
        bool welcome = false;      // it has sent a token or a session that is valid
        bool streams = false;      // no deadline: it follows the events
    };

    // At the limit the oldest that is not welcome is closed for each new one, and the oldest if all are. So it is for
    // the connections of one address, but a new one is counted only when the next one comes, or in tick().
    explicit connections(const limits &allowed) : table_(std::make_shared<table>()), limits_(allowed) {}

    // A connection that waits for its socket and for the other end's TLS. It belongs to the caller. Null when there is
    // no memory.
    bufferevent *make(event_base *base, SSL_CTX *tls);
    // Of a transport that make() returned and that has not been freed.
    static connection &of(bufferevent *transport);

    // A whole request has arrived, or is answered now.
    void extend(connection &one) const { one.deadline = std::chrono::steady_clock::now() + limits_.answer_time; }
    // Closes those that take too long. To be called once a second.
    void tick();
    std::size_t size() const { return table_->size(); }

private:
    using table = std::list<connection>;
    struct entry;

    static int index();
    static void close(connection &one);
    static bool is_closing(const connection &one) { return one.deadline == steady_time::max(); }
    static void close_one(const std::vector<connection *> &among);
    void make_room();
    void limit_addresses();

    std::shared_ptr<table> table_;  // the oldest first; libevent may free a transport after this object
    limits limits_;
};

}  // namespace controller::api

#endif
