// A terminal that nobody sits at.
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

    // The file that a program opens to write to it.
    const std::string& path() const { return path_; }

    // Reads what was written to it until `text` has appeared.
    std::string readUntil(const std::string& text) const;

  private:
    int screen_;
    int kept_;  // as long as it is open, nothing that was written is lost
    std::string path_;
};

}  // namespace qv::host

#endif  // QVHOST_PSEUDO_TERMINAL_H
