// SPDX-License-Identifier: Apache-2.0

// Makes a terminal whose output a test reads.
#ifndef QVHOST_PSEUDO_TERMINAL_H
#define QVHOST_PSEUDO_TERMINAL_H

#include <string>

namespace qv::host {

class PseudoTerminal {
  public:
    // Throws std::system_error.
    PseudoTerminal();
    ~PseudoTerminal();

    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    // Returns the file that a program opens to write to the terminal.
    const std::string& path() const { return path_; }

    // Sets how many characters a line has. At first the terminal does not tell.
    void setWidth(unsigned short columns) const;

    // Returns what was written to the terminal up to `text`.
    std::string readUntil(const std::string& text) const;

  private:
    int screen_;
    int kept_;  // while this is open, no output is lost
    std::string path_;
};

}  // namespace qv::host

#endif  // QVHOST_PSEUDO_TERMINAL_H
