// The client table beside each of its rivals, as ratios from one run.
#ifndef TESTS_BENCH_TABLE_BENCH_REPORT_H
#define TESTS_BENCH_TABLE_BENCH_REPORT_H

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

// Collects every repetition of the benchmarks, which are named "operation/addresses/residents/table" and process items,
// and prints one table at the end.
class ratio_reporter : public benchmark::BenchmarkReporter {
public:
    // Prints the scenes, "operation/addresses/residents", in this order. The first of the tables is the one that the
    // others are compared with.
    ratio_reporter(std::vector<std::string> scenes, std::vector<std::string> tables)
        : scenes_(std::move(scenes)), tables_(std::move(tables)) {}
    bool ReportContext(const Context &context) override;
    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

private:
    // Nanoseconds per operation in each repetition, by table.
    using times = std::map<std::string, std::vector<double>>;
    void print(const std::string &scene, const times &measured);

    std::vector<std::string> scenes_, tables_;
    std::map<std::string, times> measured_;
    std::vector<double> noise_;
};

}  // namespace bench

#endif
