#include "apctl/metrics.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <list>
#include <map>
#include <system_error>
#include <utility>
#include <vector>

#include "apctl/texts.h"
#include "common/printable.h"

namespace apctl {

namespace {

enum class metric : std::uint8_t { counter, gauge };
using labels = std::vector<std::pair<std::string, std::string>>;

constexpr std::array states = {"home", "foreign", "tunnelled", "guest", "elsewhere"};

// The text of one metric, see https://prometheus.io/docs/instrumenting/exposition_formats/
class family {
public:
    family(metric type, const char *name, const char *help) : name_(name) {
        const char *const kind = type == metric::counter ? "counter" : "gauge";
        head_ = "# HELP " + name_ + ' ' + help + "\n# TYPE " + name_ + ' ' + kind + '\n';
    }
    // The values of labels have neither quotes nor control characters.
    void sample(const labels &with, std::uint64_t value) {
        std::string all;
        for (const auto &[label, text] : with) {
            all += (all.empty() ? "" : ",") + label + "=\"" + doubled(text) + '"';
        }
        samples_ += name_ + (all.empty() ? "" : '{' + all + '}') + ' ' + std::to_string(value) + '\n';
    }
    std::string text() const { return samples_.empty() ? "" : head_ + samples_; }

private:
    static std::string doubled(const std::string &text) {
        std::string result;
        for (const char c : text) {
            result += c == '\\' ? "\\\\" : std::string(1, c);
        }
        return result;
    }

    std::string name_, head_, samples_;
};

class families {
public:
    family &add(metric type, const char *name, const char *help) { return all_.emplace_back(type, name, help); }
    void add(metric type, const char *name, const char *help, std::uint64_t value) {
        add(type, name, help).sample({}, value);
    }
    std::string text() const {
        std::string whole;
        for (const family &each : all_) {
            whole += each.text();
        }
        return whole;
    }

private:
    std::list<family> all_;
};

// A sample for each number with the prefix; the rest of its name is the value of `label`.
void add_samples(family &to, const shown &from, const std::string &prefix, const char *label,
                 const labels &others = {}) {
    for (auto at = from.numbers.lower_bound(prefix); at != from.numbers.end() && at->first.starts_with(prefix); ++at) {
        labels with = others;
        with.push_back({label, kx::printable(at->first.substr(prefix.size()))});
        to.sample(with, at->second);
    }
}

void add_clients(families &to, const shown &from) {
    std::map<std::pair<std::string, std::string>, std::uint64_t> counts;  // by VAP and state
    for (const kx::view_vap &vap : from.vaps) {
        for (const char *state : states) {
            if (std::string_view(state) != "elsewhere") {
                counts[{ifname_of(vap), state}] = 0;
            }
        }
    }
    counts[{"none", "elsewhere"}] = 0;
    for (const auto &[mac, client] : from.clients) {
        const kx::view_vap *const vap = vap_of(from, client);
        counts[{vap == nullptr ? "none" : ifname_of(*vap), state_of(from, client)}]++;
    }
    family &clients = to.add(metric::gauge, "ap_clients",
                             "Clients in the table, by VAP and state; on other access points: VAP none.");
    for (const auto &[which, number] : counts) {
        clients.sample({{"vap", which.first}, {"state", which.second}}, number);
    }
    to.add(metric::gauge, "ap_clients_limit", "Clients that the table has room for.", from.number("clients.most"));
    to.add(metric::gauge, "ap_vaps", "VAPs that the client manager serves.", from.vaps.size());
}

void add_tunnel(families &to, const shown &from) {
    to.add(metric::gauge, "ap_tunnel_up", "1 while the tunnel to the controller is up.", from.number("tunnel.up"));
    to.add(metric::gauge, "ap_tunnel_queue_bytes", "Bytes that wait for the tunnel.",
           from.number("tunnel.queue_bytes"));
    add_samples(to.add(metric::counter, "ap_tunnel_connects_total", "Attempts to connect to the controller."), from,
                "connects.", "result");
    add_samples(to.add(metric::counter, "ap_records_sent_total", "Records sent to the controller."), from, "records.",
                "type");
    to.add(metric::counter, "ap_heartbeats_missed_total", "Heartbeats that the client manager did not answer.",
           from.number("heartbeats.missed"));
    if (from.numbers.contains("certificate.end")) {
        to.add(metric::gauge, "ap_certificate_expiry_timestamp_seconds", "End of the access point's certificate.",
               from.number("certificate.end"));
    }
}

[[noreturn]] void fail(const std::string &file) {
    const int error = errno;
    throw std::system_error(error, std::generic_category(), file);
}

}  // namespace

std::string metrics_of(const daemon_answer &client_mgr, const daemon_answer &apd) {
    families all;
    family &up = all.add(metric::gauge, "ap_daemon_up", "1 when the daemon answers.");
    for (const daemon_answer *each : {&client_mgr, &apd}) {
        up.sample({{"daemon", each->daemon}}, each->answer ? 1 : 0);
    }
    family &started = all.add(metric::gauge, "ap_daemon_start_time_seconds", "When the daemon was started.");
    for (const daemon_answer *each : {&client_mgr, &apd}) {
        if (each->answer) {
            started.sample({{"daemon", each->daemon}}, each->answer->number("started"));
        }
    }
    family &losses = all.add(metric::counter, "ap_lost_total", "What was lost, by reason.");
    for (const daemon_answer *each : {&client_mgr, &apd}) {
        if (each->answer) {
            add_samples(losses, *each->answer, "lost.", "reason", {{"daemon", each->daemon}});
        }
    }
    if (client_mgr.answer) {
        add_clients(all, *client_mgr.answer);
        add_samples(all.add(metric::counter, "ap_local_messages_total",
                            "Local messages that the client manager was given, by kind."),
                    *client_mgr.answer, "messages.", "kind");
    }
    if (apd.answer) {
        add_tunnel(all, *apd.answer);
    }
    return all.text();
}

std::string collect_metrics() {
    return metrics_of(try_ask("client_mgr", kx::view_of_client_mgr, kx::view_request_clients),
                      try_ask("apd", kx::view_of_apd, kx::view_request_status));
}

void write_metrics_file(const std::string &file) {
    const std::string text = collect_metrics();
    const std::string aside = file + ".new";  // the collector reads only *.prom
    const int fd = open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0) {
        fail(aside);
    }
    const bool whole = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(fd) == 0;
    const int error = errno;
    close(fd);
    if (!whole) {
        unlink(aside.c_str());
        errno = error;
        fail(aside);
    }
    if (std::rename(aside.c_str(), file.c_str()) != 0) {
        fail(file);
    }
}

}  // namespace apctl
