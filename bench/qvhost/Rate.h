// SPDX-License-Identifier: Apache-2.0

// Measures how often a second a server does the work of some clients. Servers that are compared
// take turns in rounds. A rate is the median of the rounds. So is a ratio, whose two rates come
// from the same round.
#ifndef QV_BENCH_RATE_H
#define QV_BENCH_RATE_H

#include <chrono>
#include <vector>

#include "Driver.h"
#include "Subject.h"

namespace qv::bench {

// Returns the median of the ratios of values that come from the same round.
double medianRatio(const std::vector<double>& values, const std::vector<double>& others);

class Rate {
  public:
    Rate(Subject& subject, Work work, int clients);

    // Lets the clients send requests for this long. Throws std::exception.
    void measure(std::chrono::steady_clock::duration time);

    double median() const;
    double medianRatioTo(const Rate& other) const { return medianRatio(rates_, other.rates_); }

    // Returns the median of the processor time of the server for a request, in microseconds.
    double medianCost() const;

  private:
    Subject* subject_;
    int clients_;
    Driver driver_;
    std::vector<double> rates_;
    std::vector<double> costs_;
};

}  // namespace qv::bench

#endif  // QV_BENCH_RATE_H
