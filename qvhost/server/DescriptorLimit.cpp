#include "server/DescriptorLimit.h"

#include <sys/resource.h>

#include <limits>

#ifdef __APPLE__
#include <sys/syslimits.h>

#include <algorithm>
#endif

namespace qv::host {

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

}  // namespace qv::host
