// SPDX-License-Identifier: Apache-2.0

// Runs `qvhost serve` as a process, with directories of its own for log, configuration and socket:
//
//     HostProcess host;
//     host.start();
//     RawClient client(host.socket());
//     ...
//     host.signal(SIGTERM);
//     EXPECT_EQ(host.wait(), 0);
#ifndef QVHOST_HOST_PROCESS_H
#define QVHOST_HOST_PROCESS_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "qvhost/TestFiles.h"

namespace qv::host {

class HostProcess {
  public:
    HostProcess();
    // Kills the host if it still runs.
    ~HostProcess();

    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;
    HostProcess(HostProcess&&) = delete;
    HostProcess& operator=(HostProcess&&) = delete;

    const TestFiles& files() const { return files_; }
    std::string socket() const { return socket_; }
    void useSocket(const std::string& path) { socket_ = path; }

    // Adds a variable to the host's environment.
    void setVariable(const std::string& name, const std::string& value) {
        variables_.emplace_back(name, value);
    }

    // Makes the host load the real plug-in behind a layer that behaves like this.
    void disturbPlugin(const std::string& behaviour);
    void setBehaviour(const std::string& behaviour) const;

    // Sets a function that the process runs before it becomes the host.
    void setPreparation(std::function<void()> preparation) {
        preparation_ = std::move(preparation);
    }

    // Passes descriptors as a service manager does. They become the first ones after the standard
    // streams.
    void passSockets(std::vector<int> descriptors) { passed_ = std::move(descriptors); }

    // Returns the plug-in's file.
    std::string configuration() const { return files_.path("config/namingService.conf.plist"); }

    // Starts the host and waits until it serves. Returns false if it ends first.
    bool start(const std::vector<std::string>& options = {});

    // Starts the host and does not wait.
    void launch(const std::vector<std::string>& options = {});

    // Reads the standard error of the host until `text` appears. Returns false if the host ends
    // first.
    bool waitForError(const std::string& text);

    void signal(int number) const;

    // Waits for the end. Returns the exit status, or 128 plus the signal that ended the host.
    int wait();

    // Returns what was read of standard error so far. After wait(), that is all of it.
    const std::string& errors() const { return errors_; }

    pid_t process() const { return child_; }

  private:
    [[noreturn]] void becomeHost(const std::vector<std::string>& options, int errors);
    bool readErrors();

    TestFiles files_;
    std::string socket_ = files_.path("host.sock");
    std::vector<std::pair<std::string, std::string>> variables_;
    std::vector<std::string> pluginOptions_;
    std::vector<int> passed_;
    std::function<void()> preparation_;
    std::string errors_;
    int errorPipe_ = -1;
    pid_t child_ = -1;
};

}  // namespace qv::host

#endif  // QVHOST_HOST_PROCESS_H
