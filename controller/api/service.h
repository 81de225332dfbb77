// All parts of the HTTP API of a controller.
#ifndef CONTROLLER_API_SERVICE_H
#define CONTROLLER_API_SERVICE_H

#include "controller/api/server.h"

namespace controller::api {

class service {
public:
    struct options {
        std::string address = "127.0.0.1";
        std::uint16_t port = 0;  // 0 is any free port
        std::string certificate, key;
        std::span<const static_file> page = {};
    };

    // All must outlive the object. Throws std::runtime_error.
    service(event_base *base, exchange &with, store &kept, accounts &users, const options &chosen);

    ~service();
    service(const service &) = delete;
    service &operator=(const service &) = delete;

    std::uint16_t port() const { return server_.port(); }
    event_feed &events() { return api_.events(); }
    // Reads the certificate and the key anew. Throws std::runtime_error.
    void reload(const std::string &certificate, const std::string &key);
    std::optional<kx::wall_time> certificate_end() const { return api_.certificate_end(); }

private:
    void add_event(const exchange::link_change &what);
    void add_events(std::span<const change> made);

    exchange &with_;
    worker worker_;
    api api_;
    server server_;
    kx::watch second_;
};

}  // namespace controller::api

#endif
