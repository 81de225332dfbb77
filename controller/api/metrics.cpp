#include "controller/api/metrics.h"

#include <prometheus/text_serializer.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>

namespace controller::api {

namespace {

using family = prometheus::MetricFamily;
using families = std::vector<family>;

const prometheus::Histogram::BucketBoundaries request_buckets = {0.0005, 0.001, 0.002, 0.005, 0.01, 0.05, 0.25, 1};

family make(prometheus::MetricType type, const char *name, const char *help) {
    family made;
    made.name = name;
    made.help = help;
    made.type = type;
    return made;
}

void add_sample(family &to, double value, const std::string &label = "", const std::string &label_value = "") {
    prometheus::ClientMetric sample;
    if (!label.empty()) {
        sample.label.push_back({label, label_value});
    }
    (to.type == prometheus::MetricType::Counter ? sample.counter.value : sample.gauge.value) = value;
    to.metric.push_back(sample);
}

template <typename T>
double number(T value) {
    return static_cast<double>(value);
}

void add(families &to, prometheus::MetricType type, const char *name, const char *help, double value) {
    add_sample(to.emplace_back(make(type, name, help)), value);
}

void add_exchange(families &to, const exchange &with) {
    using enum prometheus::MetricType;
    const counters &counts = with.counts();
    add(to, Gauge, "controller_tunnels", "Access points with a tunnel.", number(with.aps().links().size()));
    add(to, Counter, "controller_records_received_total", "Records of access points.", number(counts.records));
    add(to, Counter, "controller_records_malformed_total", "Records that were not understood.",
        number(counts.malformed));
    add(to, Counter, "controller_messages_sent_total", "Messages to access points.", number(counts.sent));
    add(to, Counter, "controller_messages_unsent_total", "Messages that were lost because a tunnel was full or ended.",
        number(with.tunnel_losses().messages_unsent));
    add(to, Counter, "controller_frames_ignored_total", "Frames for another destination.",
        number(with.tunnel_losses().frames_ignored));
    add(to, Counter, "controller_tunnels_refused_total", "Tunnels that never came up.", number(with.refused()));
    add(to, Counter, "controller_connections_displaced_total",
        "Connections without a certificate that made room for newer ones.", number(counts.displaced));
    add(to, Counter, "controller_accept_errors_total", "Times that no connection could be accepted.",
        number(counts.accept_errors));
    add(to, Counter, "controller_output_lines_dropped_total", "Lines that standard output did not take.",
        number(with.dropped_lines()));
    if (const auto end = with.certificate_end()) {
        add(to, Gauge, "controller_certificate_expiry_timestamp_seconds", "End of the controller's certificate.",
            number(std::chrono::system_clock::to_time_t(*end)));
    }
}

void add_site(families &to, const site &of) {
    using enum prometheus::MetricType;
    const site_tables &tables = of.tables();
    add(to, Gauge, "controller_access_points", "Access points of the site, with and without a tunnel.",
        number(tables.aps().size()));
    add(to, Gauge, "controller_clients", "Clients of the site.", number(tables.clients()));
    add(to, Counter, "controller_roams_total", "Clients that went to another VAP.", number(of.roams()));
    family &guests = to.emplace_back(make(Gauge, "controller_guests", "Guests by their approval."));
    add_sample(guests, number(tables.guests(guest_state::waiting)), "state", "waiting");
    add_sample(guests, number(tables.guests(guest_state::approved)), "state", "approved");
    add_sample(guests, number(tables.guests(guest_state::unknown)), "state", "unknown");
}

void add_store(families &to, const store_status &of) {
    using enum prometheus::MetricType;
    add(to, Gauge, "controller_store_up", "1 when changes are stored, 0 while the store cannot write.",
        of.fault.empty() ? 1 : 0);
    add(to, Gauge, "controller_store_waiting_changes", "Changes that are not durable yet.", number(of.waiting));
    add(to, Gauge, "controller_store_size_bytes", "Size of the store.", number(of.bytes));
    add(to, Counter, "controller_store_commits_total", "Transactions of the store.", number(of.commits));
    add(to, Counter, "controller_store_faults_total", "Attempts of the store to write that failed.", number(of.faults));
    add(to, Counter, "controller_store_history_lost_total", "History entries that were lost.", number(of.history_lost));
    add(to, Counter, "controller_store_changes_refused_total", "Changes that the store refused.",
        number(of.changes_refused));
}

double resident_bytes() {
    std::ifstream statm("/proc/self/statm");
    std::uint64_t size = 0;
    std::uint64_t resident = 0;
    statm >> size >> resident;
    return number(resident) * number(sysconf(_SC_PAGESIZE));
}

void add_process(families &to) {
    using enum prometheus::MetricType;
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const auto seconds = [](const timeval &time) { return number(time.tv_sec) + number(time.tv_usec) / 1e6; };
    add(to, Counter, "process_cpu_seconds_total", "User and system time.",
        seconds(used.ru_utime) + seconds(used.ru_stime));
    add(to, Gauge, "process_resident_memory_bytes", "Resident memory.", resident_bytes());
}

}  // namespace

metrics::metrics()
    : requests_(prometheus::BuildCounter()
                    .Name("controller_http_requests_total")
                    .Help("Answered HTTP requests.")
                    .Register(registry_)),
      seconds_(prometheus::BuildHistogram()
                   .Name("controller_http_request_duration_seconds")
                   .Help("Time from a request to its answer.")
                   .Register(registry_)
                   .Add({}, request_buckets)) {}

void metrics::count_request(method how, int status, double seconds) {
    requests_.Add({{"method", name_of(how)}, {"code", std::to_string(status)}}).Increment();
    seconds_.Observe(seconds);
}

std::string metrics::text(const exchange &with, const store_status &stored) const {
    families all = registry_.Collect();
    add_exchange(all, with);
    if (const site *known = with.managed_site()) {
        add_site(all, *known);
    }
    add_store(all, stored);
    add_process(all);
    return prometheus::TextSerializer().Serialize(all);
}

}  // namespace controller::api
