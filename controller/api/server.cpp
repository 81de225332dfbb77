#include "controller/api/server.h"

#include <netinet/in.h>
#include <openssl/ssl.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

namespace controller::api {

namespace {

constexpr ev_ssize_t header_fields_max = 16 * 1024;  // bytes of all fields of a request

using field = std::pair<const char *, const char *>;
// The page loads nothing from elsewhere and is not shown inside another page.
constexpr std::array<field, 6> security_fields = {
    field{"Content-Security-Policy",
          "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
          "form-action 'self'; base-uri 'none'; frame-ancestors 'none'; require-trusted-types-for 'script'; "
          "trusted-types 'none'"},
    field{"X-Content-Type-Options", "nosniff"},
    field{"X-Frame-Options", "DENY"},
    field{"Referrer-Policy", "no-referrer"},
    field{"Cross-Origin-Opener-Policy", "same-origin"},
    field{"Cross-Origin-Resource-Policy", "same-origin"},
};

// At most a quarter of the descriptors that the process may have, so that access points are served all the same.
connections::limits within_descriptors(connections::limits allowed) {
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    allowed.count = std::clamp<std::size_t>(files.rlim_cur / 4, 1, allowed.count);
    return allowed;
}

method method_of(evhttp_cmd_type type) {
    switch (type) {
        case EVHTTP_REQ_GET:
        case EVHTTP_REQ_HEAD:
            return method::get;
        case EVHTTP_REQ_POST:
            return method::post;
        case EVHTTP_REQ_PUT:
            return method::put;
        case EVHTTP_REQ_PATCH:
            return method::patch;
        case EVHTTP_REQ_DELETE:
            return method::del;
        default:
            return method::other;
    }
}

std::string text_or_empty(const char *text) { return text == nullptr ? "" : text; }

header_fields read_fields(const evhttp_request *from) {
    const evkeyvalq *fields = evhttp_request_get_input_headers(const_cast<evhttp_request *>(from));
    const auto find = [fields](const char *name) { return text_or_empty(evhttp_find_header(fields, name)); };
    return {.authorization = find("Authorization"),
            .cookie = find("Cookie"),
            .csrf = find("X-CSRF-Token"),
            .content_type = find("Content-Type"),
            .if_none_match = find("If-None-Match"),
            .last_event_id = find("Last-Event-ID")};
}

request read_request(evhttp_request *from) {
    const evhttp_uri *target = evhttp_request_get_evhttp_uri(from);
    request made{.how = method_of(evhttp_request_get_command(from)),
                 .path = read_path(text_or_empty(target == nullptr ? nullptr : evhttp_uri_get_path(target))),
                 .query = read_query(text_or_empty(target == nullptr ? nullptr : evhttp_uri_get_query(target))),
                 .fields = read_fields(from),
                 .body = {},
                 .address = {}};
    evbuffer *body = evhttp_request_get_input_buffer(from);
    made.body.resize(evbuffer_get_length(body));
    evbuffer_remove(body, made.body.data(), made.body.size());
    char *address = nullptr;
    ev_uint16_t port = 0;
    evhttp_connection_get_peer(evhttp_request_get_connection(from), &address, &port);
    made.address = text_or_empty(address);
    return made;
}

void add_fields(evhttp_request *to, const response &what) {
    evkeyvalq *fields = evhttp_request_get_output_headers(to);
    for (const auto &[name, value] : security_fields) {
        evhttp_add_header(fields, name, value);
    }
    for (const auto &[name, value] : what.headers) {
        evhttp_add_header(fields, name.c_str(), value.c_str());
    }
    if (evhttp_find_header(fields, "Cache-Control") == nullptr) {
        evhttp_add_header(fields, "Cache-Control", "no-store");
    }
    if (!what.type.empty()) {
        evhttp_add_header(fields, "Content-Type", what.type.c_str());
    }
}

timeval to_timeval(std::chrono::microseconds time) { return {time.count() / 1'000'000, time.count() % 1'000'000}; }

std::uint16_t port_of(int fd) {
    sockaddr_storage address{};
    socklen_t length = sizeof(address);
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        throw std::runtime_error("cannot read the port of the listening socket");
    }
    return ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6 &>(address).sin6_port
                                               : reinterpret_cast<const sockaddr_in &>(address).sin_port);
}

}  // namespace

server::server(event_base *base, std::shared_ptr<SSL_CTX> tls, const std::string &address, std::uint16_t port,
               api &answers, const connections::limits &allowed)
    : base_(base),
      silence_(to_timeval(allowed.silence)),
      tls_(std::move(tls)),
      api_(answers),
      connections_(within_descriptors(allowed)),
      streams_(base, answers.events()),
      http_(evhttp_new(base)),
      second_(base, -1, EV_PERSIST, [this] { tick(); }) {
    if (!http_) {
        throw std::bad_alloc();
    }
    evhttp_set_max_headers_size(http_.get(), header_fields_max);
    evhttp_set_max_body_size(http_.get(), body_max);
    evhttp_set_timeout_tv(http_.get(), &silence_);
    evhttp_set_default_content_type(http_.get(), nullptr);
    evhttp_set_allowed_methods(http_.get(), EVHTTP_REQ_GET | EVHTTP_REQ_HEAD | EVHTTP_REQ_POST | EVHTTP_REQ_PUT |
                                                EVHTTP_REQ_PATCH | EVHTTP_REQ_DELETE | EVHTTP_REQ_OPTIONS);
    evhttp_set_bevcb(
        http_.get(),
        [](event_base *on, void *self) {
            auto *const of = static_cast<server *>(self);
            return of->connections_.make(on, of->tls_.get());
        },
        this);
    evhttp_set_gencb(
        http_.get(), [](evhttp_request *from, void *self) { static_cast<server *>(self)->receive(from); }, this);
    evhttp_bound_socket *bound = evhttp_bind_socket_with_handle(http_.get(), address.c_str(), port);
    if (bound == nullptr) {
        throw std::runtime_error("cannot listen on " + address + " port " + std::to_string(port) + ": " +
                                 std::strerror(errno));
    }
    listener_ = evhttp_bound_socket_get_listener(bound);
    // Without descriptors the loop would try again at once. tick() enables the listener.
    evconnlistener_set_error_cb(listener_, [](evconnlistener *which, void *) { evconnlistener_disable(which); });
    port_ = port_of(evhttp_bound_socket_get_fd(bound));
    second_.start(std::chrono::seconds(1));
}

server::~server() { http_.reset(); }

void server::tick() {
    evconnlistener_enable(listener_);
    connections_.tick();
    streams_.tick(api_.rights());
}

void server::receive(evhttp_request *from) {
    evhttp_connection *over = evhttp_request_get_connection(from);
    connections_.extend(connections::of(evhttp_connection_get_bufferevent(over)));
    const auto asked = pending_.emplace_back(
        std::make_shared<pending>(pending{.to = from,
                                          .over = over,
                                          .how = method_of(evhttp_request_get_command(from)),
                                          .head_only = evhttp_request_get_command(from) == EVHTTP_REQ_HEAD,
                                          .since = std::chrono::steady_clock::now()}));
    evhttp_connection_set_closecb(
        over, [](evhttp_connection *gone, void *self) { static_cast<server *>(self)->closed(gone); }, this);
    try {
        api_.handle(read_request(from), [this, asked](const response &what) { answer(asked, what); });
    } catch (const refusal &why) {
        answer(asked, problem(why.status, why.what()));
    }
}

// libevent frees a request whose connection ends, unless it has taken the connection away from it before.
void server::closed(const evhttp_connection *gone) {
    pending_.remove_if([&](const std::shared_ptr<pending> &each) {
        if (each->over != gone) {
            return false;
        }
        streams_.forget(each->to);
        if (evhttp_request_get_connection(each->to) == nullptr) {
            evhttp_request_free(each->to);
        }
        each->to = nullptr;
        return true;
    });
}

void server::answer(const std::shared_ptr<pending> &to, const response &what) {
    if (to->to == nullptr) {
        return;
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - to->since;
    connections::connection &over = connections::of(evhttp_connection_get_bufferevent(to->over));
    over.welcome = over.welcome || what.to_known_sender;
    if (what.events_after) {
        follow(to, what);
        return;
    }
    api_.counters().count_request(to->how, what.status, taken.count());
    connections_.extend(over);
    evhttp_request *request = to->to;
    pending_.remove(to);
    add_fields(request, what);
    if (to->head_only) {
        evhttp_add_header(evhttp_request_get_output_headers(request), "Content-Length",
                          std::to_string(what.body.size()).c_str());
    } else {
        evbuffer_add(evhttp_request_get_output_buffer(request), what.body.data(), what.body.size());
    }
    evhttp_send_reply(request, what.status, reason_of(what.status), nullptr);
}

void server::follow(const std::shared_ptr<pending> &to, const response &head) {
    response started = head;
    started.events_after.reset();
    if (to->head_only) {
        answer(to, started);
        return;
    }
    if (!streams_.has_room()) {
        answer(to, problem(503, "too many clients follow the events"));
        return;
    }
    bufferevent *transport = evhttp_connection_get_bufferevent(to->over);
    connections::of(transport).streams = true;
    add_fields(to->to, started);
    evhttp_send_reply_start(to->to, head.status, reason_of(head.status));
    bufferevent_set_timeouts(transport, nullptr, &silence_);  // the client sends nothing more
    streams_.add(to->to, *head.events_after, head.body, api_.rights());
}

}  // namespace controller::api
