// SPDX-License-Identifier: Apache-2.0

#include "Rate.h"

#include <cstddef>
#include <optional>

#include "OneProcessor.h"
#include "Quantile.h"

namespace qv::bench {

double medianRatio(const std::vector<double>& values, const std::vector<double>& others) {
    std::vector<double> ratios;
    for (std::size_t round = 0; round < values.size(); ++round) {
        ratios.push_back(values[round] / others[round]);
    }
    return quantile(ratios, 0.5);
}

Rate::Rate(Subject& subject, Work work, int clients)
    : subject_(&subject), clients_(clients), driver_(subject, work, clients) {}

void Rate::measure(std::chrono::steady_clock::duration time) {
    std::optional<OneProcessor> together;
    if (clients_ == 1) {
        together.emplace(subject_->process().id());
    }
    const auto start = std::chrono::steady_clock::now();
    const auto before = subject_->process().processorTime();
    const auto requests = static_cast<double>(driver_.runFor(time));
    const std::chrono::duration<double, std::micro> used =
        subject_->process().processorTime() - before;
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    rates_.push_back(requests / taken.count());
    costs_.push_back(used.count() / requests);
}

double Rate::median() const {
    return quantile(rates_, 0.5);
}

double Rate::medianCost() const {
    return quantile(costs_, 0.5);
}

}  // namespace qv::bench
