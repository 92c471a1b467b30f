// What can be spared in a process of one thread.
#ifndef COREFOUNDATION_THREADS_H
#define COREFOUNDATION_THREADS_H

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

namespace cf {

// Whether this is known to be the process's only thread, so that nothing needs locked instructions.
// They are most of what building a tree costs beside its memory.
inline bool isSingleThreaded() {
#if __has_include(<sys/single_threaded.h>)
    return __libc_single_threaded != 0;
#else
    return false;
#endif
}

}  // namespace cf

#endif  // COREFOUNDATION_THREADS_H
