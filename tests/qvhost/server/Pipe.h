// SPDX-License-Identifier: Apache-2.0

// Makes the pipe at which a disturbed plug-in waits.
#ifndef QVHOST_PIPE_H
#define QVHOST_PIPE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "qvhost/HostProcess.h"

namespace qv::host {

class Pipe {
  public:
    explicit Pipe(const HostProcess& host) : path_(host.files().path("pipe")) {
        EXPECT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    }
    ~Pipe() { letGo(); }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    // Waits until the plug-in waits at the pipe.
    void meetRequest() { descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC); }

    void letGo() {
        if (descriptor_ != -1) {
            ::close(descriptor_);
            descriptor_ = -1;
        }
    }

  private:
    std::string path_;
    int descriptor_ = -1;
};

}  // namespace qv::host

#endif  // QVHOST_PIPE_H
