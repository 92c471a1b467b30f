// The plug-in with the model beside it, called as a host calls it: through its exported functions
// and its command table. Each call is made on both, and what it gives and leaves has to agree;
// aborts, saying what does not, otherwise.
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

    // With the bytes of a request, whatever they are. These two need an initialised plug-in.
    void registerServices(std::string_view request);
    void unregisterServices(std::string_view request);
    void setDebugLevel(std::string_view request);

    // Calls that are refused or do nothing: with null, with lengths that are none.
    void callWithoutArguments();

    // Everything that can be seen of the plug-in.
    void check() const;

    ModelledFiles files;

  private:
    bool isInitialized_ = false;
};

}  // namespace qv::fuzz

#endif  // QV_FUZZ_MODELLED_PLUGIN_H
