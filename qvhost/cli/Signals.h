// SPDX-License-Identifier: Apache-2.0

// Lets subcommands end as by a signal, after they have said what they did.
//
//     Interruption interruption;
//     while (!isDone() && interruption.signal() == 0) {
//         doNextPart();
//     }
//     if (interruption.signal() != 0) {
//         reportError("interrupted; ...");
//         endBySignal(interruption.signal());
//     }
#ifndef QVHOST_CLI_SIGNALS_H
#define QVHOST_CLI_SIGNALS_H

namespace qv::host {

// Notices SIGINT, SIGTERM and SIGHUP while the object exists. The second of the same signal ends
// the program at once. A signal that the program ignores stays ignored. Only one object may exist
// at a time.
class Interruption {
  public:
    Interruption();
    ~Interruption();

    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    Interruption(Interruption&&) = delete;
    Interruption& operator=(Interruption&&) = delete;

    // Returns the latest signal that has arrived, or 0.
    int signal() const;
};

// Ends the program as the signal does by default, so that a shell sees why the program ended.
[[noreturn]] void endBySignal(int number);

}  // namespace qv::host

#endif  // QVHOST_CLI_SIGNALS_H
