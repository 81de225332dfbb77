#include "tests/bench/table_bench_report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace bench {

namespace {

double quantile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(std::lround(part * static_cast<double>(values.size() - 1)))];
}

double median(const std::vector<double> &values) { return quantile(values, 0.5); }

}  // namespace

bool ratio_reporter::ReportContext(const Context &) { return true; }

void ratio_reporter::ReportRuns(const std::vector<Run> &runs) {
    for (const Run &run : runs) {
        if (run.run_type != Run::RT_Iteration || run.error_occurred) {
            continue;
        }
        const std::string &name = run.run_name.function_name;
        const std::size_t cut = name.rfind('/');
        measured_[name.substr(0, cut)][name.substr(cut + 1)].push_back(1e9 / run.counters.at("items_per_second"));
    }
}

void ratio_reporter::print(const std::string &scene, const times &measured) {
    const auto own = measured.find(tables_.front());
    std::string row = "| ";
    for (const char c : scene) {
        row += c == '/' ? " | " : std::string(1, c);
    }
    std::printf("%s | ", row.c_str());
    if (own != measured.end()) {
        std::printf("%.1f |", median(own->second));
    } else {
        std::printf("|");
    }
    for (std::size_t i = 1; i < tables_.size(); i++) {
        const auto other = measured.find(tables_[i]);
        if (own == measured.end() || other == measured.end()) {
            std::printf(" |");
        } else {
            std::printf(" %.2f |", median(own->second) / median(other->second));
        }
    }
    std::printf("\n");
    for (const auto &[table, all] : measured) {
        noise_.push_back((quantile(all, 0.75) - quantile(all, 0.25)) / median(all));
    }
}

void ratio_reporter::Finalize() {
    if (measured_.empty()) {
        return;
    }
    std::printf("| Operation | Addresses | Residents | %s, ns |", tables_.front().c_str());
    for (std::size_t i = 1; i < tables_.size(); i++) {
        std::printf(" / %s |", tables_[i].c_str());
    }
    std::printf("\n|---|---|--:|--:|");
    for (std::size_t i = 1; i < tables_.size(); i++) {
        std::printf("--:|");
    }
    std::printf("\n");
    for (const std::string &scene : scenes_) {
        if (const auto found = measured_.find(scene); found != measured_.end()) {
            print(scene, found->second);
        }
    }
    std::printf("\nMedians of %zu repetitions; between the quartiles lie %.0f %% of the median, at worst %.0f %%.\n",
                measured_.begin()->second.begin()->second.size(), 100 * median(noise_), 100 * quantile(noise_, 1));
}

}  // namespace bench
