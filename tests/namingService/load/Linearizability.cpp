#include "Linearizability.h"

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <set>
#include <stdexcept>
#include <tuple>

namespace qv::tests {
namespace {

constexpr std::size_t kPlaces = 32;
constexpr std::size_t kMostConfigurations = std::size_t{1} << 16;
constexpr std::size_t kNobody = std::numeric_limits<std::size_t>::max();

struct Event {
    std::int64_t time;
    bool isResponse;
    std::size_t call;

    bool operator<(const Event& other) const {
        return std::tie(time, isResponse) < std::tie(other.time, other.isResponse);
    }
};

std::vector<Event> eventsOf(const std::vector<Call>& calls) {
    std::vector<Event> events;
    events.reserve(2 * calls.size());
    for (std::size_t call = 0; call < calls.size(); ++call) {
        events.push_back({calls[call].invoked, false, call});
        events.push_back({calls[call].responded, true, call});
    }
    std::stable_sort(events.begin(), events.end());
    return events;
}

// Numbers the values of all keys.
class States {
  public:
    std::size_t numberOf(const Values& values) {
        const auto [position, isNew] = numbers_.try_emplace(values, byNumber_.size());
        if (isNew) {
            byNumber_.push_back(&position->first);
        }
        return position->second;
    }

    std::size_t after(std::size_t state, const Write& write) {
        Values values = *byNumber_[state];
        for (const auto& [key, value] : write) {
            values.at(key) = value;
        }
        return numberOf(values);
    }

  private:
    std::map<Values, std::size_t> numbers_;
    std::vector<const Values*> byNumber_;
};

// The number of the values, and a bit for each place whose pending call has happened.
using Configuration = std::pair<std::size_t, std::uint32_t>;

constexpr std::uint32_t bit(std::size_t place) {
    return std::uint32_t{1} << place;
}

class Search {
  public:
    Search(const Values& initial, const std::vector<Call>& calls)
        : calls_(calls), placeOf_(calls.size()), stateRead_(calls.size()) {
        configurations_.emplace(states_.numberOf(initial), 0);
        underWay_.fill(kNobody);
    }

    void invoke(std::size_t call) {
        std::size_t* const place = std::find(underWay_.begin(), underWay_.end(), kNobody);
        if (place == underWay_.end()) {
            throw std::runtime_error("too many calls are pending at once");
        }
        *place = call;
        placeOf_[call] = static_cast<std::size_t>(place - underWay_.begin());
        if (const Read* const read = std::get_if<Read>(&calls_[call].action)) {
            stateRead_[call] = states_.numberOf(*read);
            std::set<Configuration> next;
            for (const auto& [state, happened] : configurations_) {
                next.emplace(state, happened | readsOf(state));
            }
            configurations_.swap(next);
        }
    }

    // Returns whether any configuration is left.
    bool respond(std::size_t call) {
        const std::size_t place = placeOf_[call];
        std::set<Configuration> left;
        std::set<Configuration> seen = configurations_;
        std::vector<Configuration> open(configurations_.begin(), configurations_.end());
        while (!open.empty()) {
            const auto [state, happened] = open.back();
            open.pop_back();
            if ((happened & bit(place)) != 0) {
                left.emplace(state, happened & ~bit(place));
                continue;
            }
            for (std::size_t other = 0; other < kPlaces; ++other) {
                if (underWay_[other] == kNobody || (happened & bit(other)) != 0) {
                    continue;
                }
                const Write* const write = std::get_if<Write>(&calls_[underWay_[other]].action);
                if (write == nullptr) {
                    continue;
                }
                const std::size_t after = states_.after(state, *write);
                const Configuration next(after, happened | bit(other) | readsOf(after));
                if (seen.insert(next).second) {
                    open.push_back(next);
                }
            }
            if (seen.size() > kMostConfigurations) {
                throw std::runtime_error("there are too many configurations");
            }
        }
        underWay_[place] = kNobody;
        configurations_.swap(left);
        return !configurations_.empty();
    }

  private:
    // Returns the pending reads that find these values.
    std::uint32_t readsOf(std::size_t state) const {
        std::uint32_t reads = 0;
        for (std::size_t place = 0; place < kPlaces; ++place) {
            const std::size_t call = underWay_[place];
            if (call != kNobody && std::holds_alternative<Read>(calls_[call].action) &&
                stateRead_[call] == state) {
                reads |= bit(place);
            }
        }
        return reads;
    }

    const std::vector<Call>& calls_;
    States states_;
    std::set<Configuration> configurations_;
    std::array<std::size_t, kPlaces> underWay_{};
    std::vector<std::size_t> placeOf_;
    std::vector<std::size_t> stateRead_;
};

}  // namespace

std::optional<std::size_t> unexplainedCall(const Values& initial, const std::vector<Call>& calls) {
    Search search(initial, calls);
    for (const Event& event : eventsOf(calls)) {
        if (!event.isResponse) {
            search.invoke(event.call);
        } else if (!search.respond(event.call)) {
            return event.call;
        }
    }
    return std::nullopt;
}

}  // namespace qv::tests
