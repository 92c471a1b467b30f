// SPDX-License-Identifier: Apache-2.0

#include "qvhost/FakePluginControl.h"

#include <cstdlib>
#include <fstream>

namespace qv::host {

FakePluginControl::FakePluginControl(const std::string& behaviour) {
    behave(behaviour);
    setenv("QVHOST_FAKE_RECORD", files_.path("record").c_str(), 1);
}

FakePluginControl::~FakePluginControl() {
    unsetenv("QVHOST_FAKE");
    unsetenv("QVHOST_FAKE_RECORD");
}

void FakePluginControl::behave(const std::string& behaviour) {
    setenv("QVHOST_FAKE", behaviour.c_str(), 1);
}

std::vector<std::string> FakePluginControl::record() const {
    std::ifstream file(files_.path("record"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace qv::host
