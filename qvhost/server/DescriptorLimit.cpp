// SPDX-License-Identifier: Apache-2.0

#include "server/DescriptorLimit.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "server/ClientThreads.h"

#ifdef __APPLE__
#include <sys/syslimits.h>
#endif

namespace qv::host {

namespace {

// The socket, the locks, the record, the plug-in's files, the clients that are turned away, and
// some spare ones.
constexpr std::size_t kOtherDescriptors = 64;

}  // namespace

std::size_t raiseDescriptorLimit() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return std::numeric_limits<std::size_t>::max();
    }
    rlimit raised = limit;
    raised.rlim_cur = limit.rlim_max;
#ifdef __APPLE__
    // The system refuses more, whatever the hard limit says.
    raised.rlim_cur = std::min<rlim_t>(raised.rlim_cur, OPEN_MAX);
#endif
    if (raised.rlim_cur > limit.rlim_cur && setrlimit(RLIMIT_NOFILE, &raised) == 0) {
        limit = raised;
    }
    return limit.rlim_cur == RLIM_INFINITY ? std::numeric_limits<std::size_t>::max()
                                           : static_cast<std::size_t>(limit.rlim_cur);
}

std::size_t clientsWithin(std::size_t limit, std::size_t threads, std::size_t wanted) {
    const std::size_t others = threads * ClientThreads::kDescriptors + kOtherDescriptors;
    if (limit <= others) {
        throw std::runtime_error(fmt::format(
            "the limit of open files is {}, and the host needs {} for one client and {} threads; "
            "raise the limit or lower --threads",
            limit, others + 1, threads));
    }
    return std::min(wanted, limit - others);
}

}  // namespace qv::host
