// Tells the fake plug-in of this process how to behave, for as long as the object lives, and gives
// back what the plug-in noted.
#ifndef QVHOST_FAKE_PLUGIN_CONTROL_H
#define QVHOST_FAKE_PLUGIN_CONTROL_H

#include <string>
#include <vector>

#include "qvhost/TestFiles.h"

namespace qv::host {

class FakePluginControl {
  public:
    // Without a behaviour the fake does everything it is asked.
    explicit FakePluginControl(const std::string& behaviour = "");
    ~FakePluginControl();

    FakePluginControl(const FakePluginControl&) = delete;
    FakePluginControl& operator=(const FakePluginControl&) = delete;
    FakePluginControl(FakePluginControl&&) = delete;
    FakePluginControl& operator=(FakePluginControl&&) = delete;

    static void behave(const std::string& behaviour);

    std::vector<std::string> record() const;

  private:
    TestFiles files_;
};

}  // namespace qv::host

#endif  // QVHOST_FAKE_PLUGIN_CONTROL_H
