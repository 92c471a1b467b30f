// SPDX-License-Identifier: Apache-2.0

// Runs the built qvhost as a process. The environment names directories of the run for the log and
// for the configuration, which is a file without services:
//
//     ProgramRun program;
//     ProgramOutcome outcome = program.run({"import", "-"}, "id,address\n");
//
// start(), write(), readUntil() and finish() talk to the program while it runs.
#ifndef QVHOST_PROGRAM_RUN_H
#define QVHOST_PROGRAM_RUN_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "qvhost/TestFiles.h"

namespace qv::host {

struct ProgramOutcome {
    int status = 0;  // the exit status, or 128 plus the signal that ended the program
    std::string out;
    std::string err;
};

class ProgramRun {
  public:
    ProgramRun();
    ~ProgramRun();

    ProgramRun(const ProgramRun&) = delete;
    ProgramRun& operator=(const ProgramRun&) = delete;
    ProgramRun(ProgramRun&&) = delete;
    ProgramRun& operator=(ProgramRun&&) = delete;

    const TestFiles& files() const { return files_; }

    std::string configuration() const { return files_.path("config/namingService.conf.plist"); }

    // Runs another copy of the program instead of the built one.
    void setProgram(const std::string& path) { program_ = path; }

    // Adds a variable to the program's environment.
    void setVariable(const std::string& name, const std::string& value) {
        variables_.push_back(name + "=" + value);
    }

    // Sets the file for standard output, by default one of the run's own. Null closes standard
    // output.
    void setOutput(const char* path);

    // Sets the file for standard error, whose content ProgramOutcome then lacks.
    void setErrors(const std::string& path) { errorFile_ = path; }

    // Runs the program to its end with `input` as standard input.
    ProgramOutcome run(const std::vector<std::string>& arguments, const std::string& input = "");

    enum Output { kOutputPipe, kOutputFile };

    // Starts the program. Standard input is a pipe. Standard output is a pipe or the file of
    // setOutput().
    void start(const std::vector<std::string>& arguments, Output output = kOutputPipe);
    void write(const std::string& text) const;
    // Reads output until `text` appears or the output ends. Returns what was read.
    std::string readUntil(const std::string& text) const;
    void closeOutput();
    void signal(int number) const;
    // Ends the input and waits for the program.
    ProgramOutcome finish();

  private:
    void spawn(const std::vector<std::string>& arguments, int input, int output);
    int wait();

    TestFiles files_;
    std::string program_ = QVHOST_PROGRAM;
    std::vector<std::string> variables_;
    std::string outputFile_;
    std::string errorFile_;
    bool outputClosed_ = false;
    pid_t child_ = -1;
    int toChild_ = -1;
    int fromChild_ = -1;
};

}  // namespace qv::host

#endif  // QVHOST_PROGRAM_RUN_H
