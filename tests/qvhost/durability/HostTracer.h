// SPDX-License-Identifier: Apache-2.0

// Watches the system calls with which a host uses the files of its configuration directory, on all
// of the host's threads. Calls can fail, wait, or be the host's last ones.
//
//     HostTracer tracer(host);
//     host.start();
//     tracer.set(Strike::failChanges(HostFile::Record, EIO));
//     ...
//     tracer.set({});
//
// A tracer serves one life of the host, and lives longer than that. Needs Linux on x86-64.
#ifndef QVHOST_HOST_TRACER_H
#define QVHOST_HOST_TRACER_H

#include <optional>
#include <string>

#include "qvhost/HostProcess.h"

namespace qv::host {

enum class HostFile {
    Configuration,
    Record,  // with its log
};

// Says what happens at which calls. There is nothing to strike by default.
struct Strike {
    enum class Kind { None, Fail, FailChanges, KillBefore, KillWithin, Hold };

    // A call by its number, from 0. fail() counts all calls, killBefore() those that change a file
    // or flush it, killWithin() those that write. The threads of a host differ in their speed, so a
    // number may stand for another call in another life.
    static Strike fail(int call, int error) { return {Kind::Fail, call, error, {}}; }
    static Strike killBefore(int call) { return {Kind::KillBefore, call, 0, {}}; }
    // Kills the host after the first half of the bytes.
    static Strike killWithin(int call) { return {Kind::KillWithin, call, 0, {}}; }

    // All calls that change the file or flush it. A call that fails is not executed.
    static Strike failChanges(HostFile file, int error) {
        return {Kind::FailChanges, -1, error, file};
    }
    static Strike hold(HostFile file) { return {Kind::Hold, -1, 0, file}; }
    static Strike killBefore(HostFile file) { return {Kind::KillBefore, -1, 0, file}; }
    static Strike killWithin(HostFile file) { return {Kind::KillWithin, -1, 0, file}; }

    Kind kind = Kind::None;
    int call = -1;
    int error = 0;
    HostFile file = HostFile::Configuration;  // if `call` is -1
};

class HostTracer {
  public:
    // What was seen of a life.
    struct Summary {
        int calls = 0;       // on files of the directory
        std::string struck;  // the last call that was struck, or an empty text
    };

    // Must be made before the host starts. If `images` is not empty, the tracer copies every file
    // that the host flushes to this directory, under the number of the file's inode. The copy is
    // what a power failure leaves at least.
    explicit HostTracer(HostProcess& host, const Strike& strike = {},
                        const std::string& images = "");
    ~HostTracer();

    HostTracer(const HostTracer&) = delete;
    HostTracer& operator=(const HostTracer&) = delete;

    // Replaces the strike while the host serves. Calls that are held go on.
    void set(const Strike& strike);

    // Returns when a call is held.
    void awaitHeld();

    // Returns what was seen. Waits for the end of the host.
    Summary ended();

  private:
    void receive();

    HostProcess& host_;
    int control_ = -1;
    int tracersEnd_ = -1;
    // What the tracer has said.
    bool hasObeyed_ = false;
    bool isHeld_ = false;
    std::optional<Summary> summary_;
};

}  // namespace qv::host

#endif  // QVHOST_HOST_TRACER_H
