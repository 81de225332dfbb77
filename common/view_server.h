// The socket at which a daemon shows itself (wire/view.h). A program that includes this is linked with libevent.
#ifndef COMMON_VIEW_SERVER_H
#define COMMON_VIEW_SERVER_H

#include <event2/event.h>
#include <event2/event_struct.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "common/ipc_endpoint.h"
#include "common/view_writer.h"

namespace kx {

enum class view_request : std::uint8_t { status, clients, watch };

// The daemon's side of an answer.
class view_source {
public:
    static constexpr std::uint32_t whole = UINT32_MAX;

    // Writes the part of an answer that begins at `position`, 0 at first, to the empty writer. Returns where the next
    // part begins, or `whole`.
    virtual std::uint32_t write(view_request asked, std::uint32_t position, view_writer &to) = 0;
    // Differs after a change.
    virtual std::uint32_t changes() const = 0;

protected:
    ~view_source() = default;
};

// Writes one part of one answer in a turn of the event loop, waits for no reader, and ends a connection without
// progress for 10 s. When all places are taken the oldest connection makes room. It allocates nothing itself.
class view_server {
public:
    static constexpr std::size_t connections_max = 4;

    view_server() = default;
    ~view_server();
    view_server(const view_server &) = delete;
    view_server &operator=(const view_server &) = delete;

    // Replaces the socket of a dead process; the caller has made sure that no other process serves `platform_path`.
    // `source` outlives the server. Throws std::system_error. Once.
    void start(event_base *base, std::string_view platform_path, view_source &source);
    // Makes the socket again when its file was removed. Throws std::system_error.
    void restore();

private:
    enum class state : std::uint8_t { free, reading, writing, watching };

    struct connection {
        view_server *owner = nullptr;
        int fd = -1;
        state now = state::free;
        view_request asked{};
        std::uint64_t number = 0;    // in the order of acceptance
        std::uint32_t position = 0;  // of the next part
        std::uint32_t seen = 0;      // changes() when the answer began
        std::size_t sent = 0;        // of `part`; while reading: bytes received
        std::array<char, view_request_max> line{};
        view_writer part;
        event ready{};
    };

    static void on_acceptable(int, short what, void *self);
    bool accept_one();
    connection &make_room();
    void wait(connection &of, short what, const timeval &limit);
    void happened(connection &of, short what);
    void read(connection &of);
    void begin_answer(connection &to);
    void write(connection &to);
    void end_answer(connection &of);
    void drop(connection &gone);

    event_base *base_ = nullptr;
    view_source *source_ = nullptr;
    std::string path_;
    socket_file file_;
    int listener_ = -1;
    event acceptable_{};
    std::uint64_t accepted_ = 0;
    std::array<connection, connections_max> connections_{};
};

}  // namespace kx

#endif
