#ifndef TESTS_BENCH_QUANTILE_H
#define TESTS_BENCH_QUANTILE_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace bench {

// Of at least one value.
inline double quantile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(std::lround(share * static_cast<double>(values.size() - 1)))];
}

}  // namespace bench

#endif
