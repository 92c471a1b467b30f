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
    // Kills it if need be.
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

    // The host loads the fake plug-in, which behaves so.
    void useFakePlugin(const std::string& behaviour);
    void setBehaviour(const std::string& behaviour) const;

    // What is done in the process before it becomes the host.
    void setPreparation(std::function<void()> preparation) {
        preparation_ = std::move(preparation);
    }

    // These become its first descriptors behind the standard ones, as a service manager passes
    // them.
    void passSockets(std::vector<int> descriptors) { passed_ = std::move(descriptors); }

    // Starts it and waits until it serves; false when it ended instead.
    bool start(const std::vector<std::string>& options = {});

    // The same, not waiting.
    void launch(const std::vector<std::string>& options = {});

    // Reads its standard error until `text` has appeared there; false when it ended first.
    bool waitForError(const std::string& text);

    void signal(int number) const;

    // Its exit status, or 128 and the signal that ended it.
    int wait();

    // What was read of its standard error so far; all of it after wait().
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
