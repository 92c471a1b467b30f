#include "History.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>

namespace qv::tests {
namespace {

constexpr std::size_t kOutside = std::numeric_limits<std::size_t>::max();

Values valuesOf(const std::vector<std::size_t>& group, const Values& all) {
    Values values;
    values.reserve(group.size());
    for (const std::size_t service : group) {
        values.push_back(all[service]);
    }
    return values;
}

}  // namespace

std::int64_t now() {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

void Record::addWrite(Interval time, const Write& write, Saves saves) {
    operations_.push_back({time, static_cast<std::uint32_t>(changes_.size()),
                           static_cast<std::uint32_t>(write.size()), false, saves});
    for (const auto& [service, value] : write) {
        changes_.emplace_back(static_cast<std::uint32_t>(service), value);
    }
}

void Record::addListing(Interval time, const Values& values) {
    const std::size_t first = changes_.size();
    for (std::size_t service = 0; service < values.size(); ++service) {
        if (values[service] != seen_[service]) {
            changes_.emplace_back(static_cast<std::uint32_t>(service), values[service]);
        }
    }
    seen_ = values;
    operations_.push_back({time, static_cast<std::uint32_t>(first),
                           static_cast<std::uint32_t>(changes_.size() - first), true,
                           Saves::kNever});
}

// A registration cannot be the save in question if more than `before` others that saved were
// invoked after its response. The interval spans all other registrations.
Interval History::timeOfSave(std::size_t before, Interval whole) const {
    std::vector<std::int64_t> invocations;
    for (const Record& record : records_) {
        for (const Record::Operation& operation : record.operations_) {
            if (operation.saves == Saves::kSurely) {
                invocations.push_back(operation.time.begin);
            }
        }
    }
    if (invocations.size() <= before) {
        return whole;
    }
    std::sort(invocations.begin(), invocations.end(), std::greater<>());
    Interval time{std::numeric_limits<std::int64_t>::max(), 0};
    for (const Record& record : records_) {
        for (const Record::Operation& operation : record.operations_) {
            if (operation.saves != Saves::kNever && operation.time.end >= invocations[before]) {
                time.begin = std::min(time.begin, operation.time.begin);
                time.end = std::max(time.end, operation.time.end);
            }
        }
    }
    return time;
}

std::pair<std::size_t, std::size_t> History::saves() const {
    std::size_t surely = 0;
    std::size_t perhaps = 0;
    for (const Record& record : records_) {
        for (const Record::Operation& operation : record.operations_) {
            surely += static_cast<std::size_t>(operation.saves == Saves::kSurely);
            perhaps += static_cast<std::size_t>(operation.saves == Saves::kPerhaps);
        }
    }
    return {surely, surely + perhaps};
}

std::size_t History::calls() const {
    std::size_t calls = 0;
    for (const Record& record : records_) {
        calls += record.operations_.size() + record.others_;
    }
    return calls;
}

std::vector<Call> History::callsOn(const std::vector<std::size_t>& group) const {
    std::vector<std::size_t> keyOf(initial_.size(), kOutside);
    for (std::size_t key = 0; key < group.size(); ++key) {
        keyOf[group[key]] = key;
    }
    std::vector<Call> calls;
    for (const Record& record : records_) {
        Values seen = initialOf(group);
        for (const Record::Operation& operation : record.operations_) {
            Write changes;
            for (std::uint32_t change = 0; change < operation.changes; ++change) {
                const auto [service, value] = record.changes_[operation.firstChange + change];
                if (keyOf[service] != kOutside) {
                    changes.emplace_back(keyOf[service], value);
                }
            }
            if (operation.isListing) {
                for (const auto& [key, value] : changes) {
                    seen[key] = value;
                }
                calls.push_back({operation.time.begin, operation.time.end, Read(seen)});
            } else if (!changes.empty()) {
                calls.push_back({operation.time.begin, operation.time.end, std::move(changes)});
            }
        }
    }
    for (const auto& [time, values] : readings_) {
        calls.push_back({time.begin, time.end, Read(valuesOf(group, values))});
    }
    return calls;
}

Values History::initialOf(const std::vector<std::size_t>& group) const {
    return valuesOf(group, initial_);
}

std::vector<std::size_t> History::changedOutside(
    const std::vector<std::vector<std::size_t>>& groups) const {
    std::vector<bool> isOutside(initial_.size(), true);
    for (const std::vector<std::size_t>& group : groups) {
        for (const std::size_t service : group) {
            isOutside[service] = false;
        }
    }
    std::vector<std::size_t> changed;
    for (const Record& record : records_) {
        for (const auto& [service, value] : record.changes_) {
            if (isOutside[service] && value != initial_[service]) {
                changed.push_back(service);
            }
        }
    }
    for (const auto& [time, values] : readings_) {
        for (std::size_t service = 0; service < values.size(); ++service) {
            if (isOutside[service] && values[service] != initial_[service]) {
                changed.push_back(service);
            }
        }
    }
    return changed;
}

}  // namespace qv::tests
