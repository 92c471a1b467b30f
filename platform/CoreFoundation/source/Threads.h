// Tells whether the process has a single thread.
#ifndef COREFOUNDATION_THREADS_H
#define COREFOUNDATION_THREADS_H

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

namespace cf {

// Returns whether the calling thread is known to be the only thread of the process, so that no
// atomic instructions are needed. They are most of the cost of building a tree, apart from its
// memory.
inline bool isSingleThreaded() {
#if __has_include(<sys/single_threaded.h>)
    return __libc_single_threaded != 0;
#else
    return false;
#endif
}

}  // namespace cf

#endif  // COREFOUNDATION_THREADS_H
