// SPDX-License-Identifier: Apache-2.0

#include "Judge.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <set>
#include <utility>

namespace qv::tests {
namespace {

using Problem = std::optional<std::string>;

class Judge {
  public:
    Judge(const Values& initial, const std::vector<std::vector<Change>>& changes)
        : changes_(changes), seen_(changes.size()), values_(initial) {}

    // Judges the next reading. The readings come in the order of the numbers of seen changes.
    Problem take(const Reading& reading) {
        Problem problem = checkOrder(reading);
        if (!problem) {
            problem = checkTimes(reading);
        }
        if (!problem) {
            problem = checkValues(reading);
        }
        seen_ = reading.seen;
        values_ = reading.values;
        return problem;
    }

  private:
    Problem checkOrder(const Reading& reading) {
        for (std::size_t thread = 0; thread < seen_.size(); ++thread) {
            if (reading.seen[thread] < seen_[thread]) {
                return "two readings each miss a change that the other saw";
            }
        }
        if (reading.seen != seen_) {
            latestBegin_ = std::max(latestBegin_, beginOfSame_);
            beginOfSame_ = reading.time.begin;
        } else {
            beginOfSame_ = std::max(beginOfSame_, reading.time.begin);
        }
        if (reading.time.end < latestBegin_) {
            return "a later reading saw less";
        }
        return std::nullopt;
    }

    Problem checkTimes(const Reading& reading) const {
        std::int64_t begin = reading.time.begin;
        for (std::size_t thread = 0; thread < seen_.size(); ++thread) {
            if (reading.seen[thread] != 0) {
                const Change& last = changes_[thread][reading.seen[thread] - 1];
                if (last.time.begin > reading.time.end) {
                    return "a reading saw a change of the future";
                }
                begin = std::max(begin, last.time.begin);
            }
        }
        for (std::size_t thread = 0; thread < seen_.size(); ++thread) {
            const std::size_t next = reading.seen[thread];
            if (next < changes_[thread].size() && changes_[thread][next].time.end < begin) {
                return "a change is lost";
            }
        }
        return std::nullopt;
    }

    Problem checkValues(const Reading& reading) const {
        std::map<std::size_t, std::vector<const Change*>> writers;
        for (std::size_t thread = 0; thread < seen_.size(); ++thread) {
            for (std::size_t at = seen_[thread]; at < reading.seen[thread]; ++at) {
                for (const std::size_t key : changes_[thread][at].keys) {
                    writers[key].push_back(&changes_[thread][at]);
                }
            }
        }
        std::set<std::pair<const Change*, const Change*>> order;
        for (std::size_t key = 0; key < values_.size(); ++key) {
            const auto found = writers.find(key);
            if (found == writers.end()) {
                if (reading.values[key] != values_[key]) {
                    return "a value has changed that no change wrote";
                }
            } else if (!isExplained(reading.values[key], found->second, order)) {
                return "a value is not that of the last change, or a half of a change is seen";
            }
        }
        return std::nullopt;
    }

    // Returns whether a writer of this value can be the last one. Adds that it follows the others.
    static bool isExplained(Value value, const std::vector<const Change*>& writers,
                            std::set<std::pair<const Change*, const Change*>>& order) {
        std::vector<const Change*> candidates;
        for (const Change* const writer : writers) {
            const bool isLast = std::none_of(
                writers.begin(), writers.end(),
                [writer](const Change* other) { return writer->time.end < other->time.begin; });
            if (writer->value == value && isLast) {
                candidates.push_back(writer);
            }
        }
        // Several removals write the same value, so any of them may be the last one.
        for (const Change* const other : writers) {
            if (candidates.size() == 1 && other != candidates.front()) {
                order.emplace(other, candidates.front());
                if (order.count({candidates.front(), other}) != 0) {
                    return false;
                }
            }
        }
        return !candidates.empty();
    }

    const std::vector<std::vector<Change>>& changes_;
    std::vector<std::size_t> seen_;
    Values values_;
    // The latest begin of the readings that saw as much as the last one, and of those that saw
    // less.
    std::int64_t beginOfSame_ = 0;
    std::int64_t latestBegin_ = 0;
};

}  // namespace

Problem contradiction(const Values& initial, const std::vector<std::vector<Change>>& changes,
                      std::vector<Reading> readings) {
    const auto total = [](const Reading& reading) {
        return std::accumulate(reading.seen.begin(), reading.seen.end(), std::size_t{0});
    };
    std::stable_sort(
        readings.begin(), readings.end(),
        [&](const Reading& one, const Reading& other) { return total(one) < total(other); });
    Judge judge(initial, changes);
    for (const Reading& reading : readings) {
        if (Problem problem = judge.take(reading)) {
            return *problem + ", " + std::to_string(reading.time.begin) + ".." +
                   std::to_string(reading.time.end);
        }
    }
    return std::nullopt;
}

}  // namespace qv::tests
