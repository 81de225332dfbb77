// What the daemons show, as rows.
#ifndef APCTL_LISTINGS_H
#define APCTL_LISTINGS_H

#include <optional>
#include <string>

#include "apctl/output.h"
#include "apctl/view_reader.h"

namespace apctl {

// One daemon's answer, or why there is none.
struct daemon_answer {
    std::string daemon;
    std::optional<shown> answer;
    std::string unreachable;
};

daemon_answer try_ask(const std::string &daemon, std::string_view platform_path, std::string_view request);

void list_status(const daemon_answer &of, output &to);
void list_counters(const daemon_answer &of, output &to);
void list_vaps(const shown &client_mgr, output &to);
void list_clients(const shown &client_mgr, output &to);
void show_client(const shown &client_mgr, const kx::view_client &client, output &to);

json to_json(const shown &client_mgr, const kx::view_client &client);

}  // namespace apctl

#endif
