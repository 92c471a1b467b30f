// SPDX-License-Identifier: Apache-2.0

// Tells the fake plug-in of this process how to behave for as long as the object lives. Returns
// what the plug-in recorded.
#ifndef QVHOST_FAKE_PLUGIN_CONTROL_H
#define QVHOST_FAKE_PLUGIN_CONTROL_H

#include <string>
#include <vector>

#include "qvhost/TestFiles.h"

namespace qv::host {

class FakePluginControl {
  public:
    // Without a behaviour, the fake plug-in carries out every command.
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
