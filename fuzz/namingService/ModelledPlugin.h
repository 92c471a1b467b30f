// SPDX-License-Identifier: Apache-2.0

// Calls the plug-in as a host does, through its exported functions and its command table, and
// repeats each call on a model. Aborts with a message if a result or a file differs from the model.
#ifndef QV_FUZZ_MODELLED_PLUGIN_H
#define QV_FUZZ_MODELLED_PLUGIN_H

#include <cstdint>
#include <string_view>

#include "QvPlugin.h"
#include "namingService/ModelledFiles.h"

namespace qv::fuzz {

class ModelledPlugin {
  public:
    ModelledPlugin() = default;
    ~ModelledPlugin() { finalize(); }
    ModelledPlugin(const ModelledPlugin&) = delete;
    ModelledPlugin& operator=(const ModelledPlugin&) = delete;

    bool isInitialized() const { return isInitialized_; }

    void initialize();
    void finalize();

    // Make a request of any bytes. The first two need an initialised plug-in.
    void registerServices(std::string_view request);
    void unregisterServices(std::string_view request);
    void setDebugLevel(std::string_view request);

    // Makes the calls that the plug-in refuses or ignores, with null pointers and invalid lengths.
    void callWithoutArguments();

    // Compares the files and the listed services with the model.
    void check() const;

    ModelledFiles files;

  private:
    bool isInitialized_ = false;
};

}  // namespace qv::fuzz

#endif  // QV_FUZZ_MODELLED_PLUGIN_H
