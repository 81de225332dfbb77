// The client table's operations beside those of containers that could stand in its place: CPU time of one operation
// over streams of 65,536, nothing logged, the repetitions of all of them in random order.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <unordered_set>
#include <vector>

#include "client_mgr/tables/client_tbl.h"
#include "kx/kx_log.h"
#include "tests/bench/table_bench_report.h"
#include "tests/bench/table_bench_rivals.h"

namespace {

using namespace bench;

constexpr std::size_t stream_length = 65536;
constexpr std::uint64_t seed = 20251;

mac_address to_mac(std::uint64_t number) {
    mac_address mac{};
    for (std::size_t i = mac.size(); i-- > 0; number >>= 8) {
        mac[i] = static_cast<std::uint8_t>(number);
    }
    return mac;
}

// --- families of addresses

using random_numbers = std::mt19937_64;

// Devices of eight vendors.
mac_address oui_like(std::size_t, random_numbers &random) {
    constexpr std::uint64_t vendors[] = {0x001122, 0x28cfe9, 0x3c5ab4, 0x5cf938,
                                         0x88665a, 0xa483e7, 0xd0817a, 0xf0989d};
    const std::uint64_t number = random();
    return to_mac(vendors[number >> 61] << 24 | (number & 0xffffff));
}

// Addresses that stations choose for themselves: locally administered, unicast.
mac_address random_address(std::size_t, random_numbers &random) {
    return to_mac((random() & 0xfcffffffffff) | 0x020000000000);
}

mac_address sequential(std::size_t n, random_numbers &) { return to_mac(0x025a00000000 + n); }

// All of them in the client table's bucket 0: bytes 0 and 3 cancel each other, and so do bytes 1 and 4.
mac_address one_bucket(std::size_t n, random_numbers &) {
    const auto low = static_cast<std::uint8_t>(n);
    const auto high = static_cast<std::uint8_t>(n >> 8);
    return {low, high, 0, low, high, 0};
}

struct address_set {
    const char *name;
    mac_address (*member)(std::size_t n, random_numbers &random);
};
constexpr address_set address_sets[] = {
    {"OUI-like", oui_like}, {"random", random_address}, {"sequential", sequential}, {"one bucket", one_bucket}};

// `stream_length` different addresses.
std::vector<mac_address> members(const address_set &set) {
    random_numbers random(seed);
    std::vector<mac_address> all;
    std::unordered_set<std::uint64_t> seen;
    for (std::size_t n = 0; all.size() < stream_length; n++) {
        const mac_address mac = set.member(n, random);
        std::uint64_t number = 0;
        std::memcpy(&number, mac.data(), mac.size());
        if (seen.insert(number).second) {
            all.push_back(mac);
        }
    }
    return all;
}

// --- operations

template <class Table>
void fill(Table &table, const std::vector<mac_address> &addresses, std::size_t residents) {
    client_info client = {};
    for (std::size_t i = 0; i < residents; i++) {
        client.cl_mac = addresses[i];
        table.add(client);
    }
}

std::vector<mac_address> stream_of(const std::vector<mac_address> &addresses, std::size_t from, std::size_t to) {
    random_numbers random(seed);
    std::uniform_int_distribution<std::size_t> any(from, to - 1);
    std::vector<mac_address> stream(stream_length);
    std::generate(stream.begin(), stream.end(), [&] { return addresses[any(random)]; });
    return stream;
}

template <class Table>
void find_all(benchmark::State &state, Table &table, const std::vector<mac_address> &stream) {
    for (auto _ : state) {
        for (const mac_address &mac : stream) {
            benchmark::DoNotOptimize(table.find(mac));
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * stream_length));
}

template <class Table>
void find_hit(benchmark::State &state, const address_set &set, std::size_t residents) {
    const std::vector<mac_address> addresses = members(set);
    Table table;
    fill(table, addresses, residents);
    find_all(state, table, stream_of(addresses, 0, residents));
}

template <class Table>
void find_miss(benchmark::State &state, const address_set &set, std::size_t residents) {
    const std::vector<mac_address> addresses = members(set);
    Table table;
    fill(table, addresses, residents);
    find_all(state, table, stream_of(addresses, residents, addresses.size()));
}

// The oldest client leaves and a new one comes: one operation.
template <class Table>
void churn(benchmark::State &state, const address_set &set, std::size_t residents) {
    const std::vector<mac_address> addresses = members(set);
    Table table;
    fill(table, addresses, residents);
    client_info client = {};
    std::size_t oldest = 0;
    std::size_t next = residents;
    for (auto _ : state) {
        for (std::size_t i = 0; i < stream_length; i++) {
            table.remove(addresses[oldest]);
            client.cl_mac = addresses[next];
            table.add(client);
            oldest = (oldest + 1) % stream_length;
            next = (next + 1) % stream_length;
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * stream_length));
}

// --- registration

using operation = void (*)(benchmark::State &, const address_set &, std::size_t);

template <class Table>
struct operations_of {
    static constexpr operation all[] = {find_hit<Table>, find_miss<Table>, churn<Table>};
};
constexpr const char *operation_names[] = {"find hit", "find miss", "add and delete"};

// With all slots in one chain the client table says on standard output of each miss that it looks like a loop.
bool is_quiet(std::size_t index, const address_set &set, std::size_t residents) {
    return operation_names[index] != std::string("find miss") || set.member != one_bucket || residents < most_clients;
}

template <class... Tables>
std::vector<std::string> add_benchmarks() {
    std::vector<std::string> scenes;
    const auto add = [&scenes](const char *table, operation run, const address_set &set, std::size_t residents) {
        benchmark::RegisterBenchmark((scenes.back() + "/" + table).c_str(),
                                     [=, &set](benchmark::State &state) { run(state, set, residents); });
    };
    for (std::size_t i = 0; i < std::size(operation_names); i++) {
        for (const address_set &set : address_sets) {
            for (const std::size_t residents : {std::size_t{128}, most_clients}) {
                if (is_quiet(i, set, residents)) {
                    scenes.push_back(std::string(operation_names[i]) + "/" + set.name + "/" +
                                     std::to_string(residents));
                    (add(Tables::name, operations_of<Tables>::all[i], set, residents), ...);
                }
            }
        }
    }
    return scenes;
}

// Runs the benchmarks of these tables and compares the first with the others.
template <class... Tables>
void compare() {
    ratio_reporter report(add_benchmarks<Tables...>(), {Tables::name...});
    benchmark::RunSpecifiedBenchmarks(&report);
}

}  // namespace

// Google Benchmark's own options, over defaults that interleave.
int main(int argc, char **argv) {
    if (argc == 2 && std::string(argv[1]) == "--version") {
        std::printf("table_bench %s\n", CLIENT_MGR_VERSION);
        return 0;
    }
    std::vector<std::string> defaults{"--benchmark_enable_random_interleaving=true", "--benchmark_repetitions=9",
                                      "--benchmark_min_time=0.02"};
    std::vector<char *> arguments{argv[0]};
    for (std::string &option : defaults) {
        arguments.push_back(option.data());
    }
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 64;
    }
    kx_log_conf_data.level = 0;
    compare<daemon_table, record_walk, std_table, absl_table, boost_table, uthash_table, last_byte_table>();
    return 0;
}
