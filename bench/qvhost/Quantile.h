// SPDX-License-Identifier: Apache-2.0

#ifndef QV_BENCH_QUANTILE_H
#define QV_BENCH_QUANTILE_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace qv::bench {

// Returns the least value that at least this share of the values does not exceed: 0.5 asks for the
// median. There is at least one value.
inline double quantile(std::vector<double> values, double share) {
    const auto rank =
        static_cast<std::size_t>(std::ceil(share * static_cast<double>(values.size())));
    const std::size_t index = std::max<std::size_t>(rank, 1) - 1;
    std::sort(values.begin(), values.end());
    return values[index];
}

}  // namespace qv::bench

#endif  // QV_BENCH_QUANTILE_H
