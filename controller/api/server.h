// The HTTP server: HTTP/1.1 over TLS 1.3 on the controller's loop.
//
// Everything that a client may make grow is bounded: connections, header fields, bodies, the time for a request and for
// reading its answer. Requests are answered within milliseconds; what takes longer runs in the worker's thread.
// The process must ignore SIGPIPE.
#ifndef CONTROLLER_API_SERVER_H
#define CONTROLLER_API_SERVER_H

#include <event2/http.h>

#include <cstdint>
#include <memory>
#include <string>

#include "common/events.h"
#include "controller/api/api.h"
#include "controller/api/connections.h"
#include "controller/api/event_streams.h"
#include "tunnel/certificate_life.h"

namespace controller::api {

// A context for TLS 1.3 that presents the certificate of a PEM file and asks for none. Throws std::runtime_error that
// names the file, also when others may read the key.
std::shared_ptr<SSL_CTX> make_server_context(const std::string &certificate, const std::string &key);

class server {
public:
    // Port 0 is any free port. `answers` must outlive the object. Throws std::runtime_error.
    server(event_base *base, std::shared_ptr<SSL_CTX> tls, const std::string &address, std::uint16_t port, api &answers,
           const connections::limits &allowed = {});
    ~server();
    server(const server &) = delete;
    server &operator=(const server &) = delete;

    std::uint16_t port() const { return port_; }
    // For connections from now on.
    void use(std::shared_ptr<SSL_CTX> tls) { tls_ = std::move(tls); }
    std::optional<kx::wall_time> certificate_end() const { return kx::end_of_own(tls_.get()); }
    std::size_t event_stream_count() const { return streams_.size(); }

private:
    // A request that has not been answered, or whose answer is a stream of events.
    struct pending {
        evhttp_request *to;  // null when the client has gone
        evhttp_connection *over;
        method how;
        bool head_only;
        steady_time since;
    };
    using http_ptr = std::unique_ptr<evhttp, kx::release_with<evhttp_free>>;

    void receive(evhttp_request *from);
    void answer(const std::shared_ptr<pending> &to, const response &what);
    void follow(const std::shared_ptr<pending> &to, const response &head);
    void closed(const evhttp_connection *gone);
    void tick();

    event_base *base_;
    timeval silence_;
    std::shared_ptr<SSL_CTX> tls_;
    api &api_;
    connections connections_;
    event_streams streams_;
    std::list<std::shared_ptr<pending>> pending_;
    http_ptr http_;
    evconnlistener *listener_ = nullptr;  // evhttp's
    kx::watch second_;
    std::uint16_t port_ = 0;
};

}  // namespace controller::api

#endif
