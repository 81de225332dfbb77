#include "apctl/metrics_server.h"

#include <event2/buffer.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/listener.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <stdexcept>
#include <string>

#include "apctl/metrics.h"
#include "common/event_ptr.h"
#include "common/events.h"
#include "common/service_manager.h"

namespace apctl {

namespace {

using std::chrono::steady_clock;

constexpr int idle_seconds = 5;
constexpr ev_ssize_t headers_max = 8192, body_max = 0;
constexpr std::chrono::seconds fresh{1}, accept_pause{1};

using http_ptr = std::unique_ptr<evhttp, kx::release_with<evhttp_free>>;

class metrics_server {
public:
    metrics_server(event_base *base, const kx::metrics_config &at)
        : http_(evhttp_new(base)), accept_again_(base, -1, 0, [this] { evconnlistener_enable(listener_); }) {
        evhttp_set_timeout(http_.get(), idle_seconds);
        evhttp_set_max_headers_size(http_.get(), headers_max);
        evhttp_set_max_body_size(http_.get(), body_max);
        evhttp_set_allowed_methods(http_.get(), EVHTTP_REQ_GET);
        evhttp_set_cb(
            http_.get(), "/metrics",
            [](evhttp_request *request, void *self) { static_cast<metrics_server *>(self)->answer(request); }, this);
        evhttp_bound_socket *const bound = evhttp_bind_socket_with_handle(http_.get(), at.address.c_str(), at.port);
        if (bound == nullptr) {
            throw std::runtime_error("cannot listen at " + at.address + " port " + std::to_string(at.port));
        }
        listener_ = evhttp_bound_socket_get_listener(bound);
        serving_ = this;
        // Without descriptors the loop would try again at once. The callback's argument belongs to evhttp.
        evconnlistener_set_error_cb(listener_, [](evconnlistener *of, void *) {
            evconnlistener_disable(of);
            serving_->accept_again_.start(accept_pause);
        });
    }
    metrics_server(const metrics_server &) = delete;
    metrics_server &operator=(const metrics_server &) = delete;

private:
    void answer(evhttp_request *request) {
        if (text_.empty() || steady_clock::now() - made_ >= fresh) {
            text_ = collect_metrics();
            made_ = steady_clock::now();
        }
        evhttp_add_header(evhttp_request_get_output_headers(request), "Content-Type",
                          "text/plain; version=0.0.4; charset=utf-8");
        const kx::evbuffer_ptr body(evbuffer_new());
        evbuffer_add(body.get(), text_.data(), text_.size());
        evhttp_send_reply(request, HTTP_OK, "OK", body.get());
    }

    static inline metrics_server *serving_ = nullptr;  // the one of this process
    http_ptr http_;
    evconnlistener *listener_ = nullptr;
    kx::watch accept_again_;
    std::string text_;
    steady_clock::time_point made_;
};

}  // namespace

void serve_metrics(const kx::metrics_config &at) {
    const kx::event_loop_ptr base(event_base_new());
    const auto end = [&] { event_base_loopbreak(base.get()); };
    kx::watch terminated(base.get(), SIGTERM, EV_SIGNAL | EV_PERSIST, end);
    kx::watch interrupted(base.get(), SIGINT, EV_SIGNAL | EV_PERSIST, end);
    terminated.start();
    interrupted.start();
    const metrics_server server(base.get(), at);
    kx::notify_service_manager("READY=1");
    event_base_dispatch(base.get());
}

}  // namespace apctl
