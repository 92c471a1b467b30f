// SPDX-License-Identifier: Apache-2.0

// Reads the directory for one thread that answers many requests:
//
//     DirectoryReader directory;
//     const Recorder::State& state = directory.newest(recorder);
//     ...
//     directory.release();  // before the thread sleeps
//
// While nothing new is published, a call takes no lock and counts no reference. Threads that share
// the recorder's lock and count spend more time on those than on a find.
#ifndef QVHOST_SERVER_DIRECTORY_READER_H
#define QVHOST_SERVER_DIRECTORY_READER_H

#include "server/Recorder.h"

namespace qv::host {

class DirectoryReader {
  public:
    // Returns the newest published state, which is valid until the next call.
    const Recorder::State& newest(const Recorder& recorder) {
        if (!recorder.isNewest(state_.get())) {
            state_ = recorder.state();
        }
        return *state_;
    }

    // Lets go of the state, because an old snapshot takes memory.
    void release() noexcept { state_.reset(); }

  private:
    Recorder::StatePointer state_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_DIRECTORY_READER_H
