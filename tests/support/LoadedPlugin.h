// The built plug-in, loaded with dlopen as a host loads it, and called only through its exported
// functions and its command table. Its log and configuration go to a directory of the test program.
#ifndef QV_TESTS_LOADED_PLUGIN_H
#define QV_TESTS_LOADED_PLUGIN_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "QvPlugin.h"

namespace qv::tests {

using Service = std::pair<std::int32_t, std::string>;
using Services = std::vector<Service>;

// Encodes the services as a serialised ServiceInfoArray, and back.
std::string encode(const Services& services);
Services decode(const std::string& bytes);

// What a command gave back. `answered` is false when it left the answer arguments alone.
struct Answer {
    int result = 0;
    bool answered = false;
    std::string bytes;
};

class LoadedPlugin {
  public:
    // Loads the plug-in without initialising it; the destructor unloads it without finalising it.
    // Fails the process when the library or a function is missing.
    LoadedPlugin();
    ~LoadedPlugin();
    LoadedPlugin(const LoadedPlugin&) = delete;
    LoadedPlugin& operator=(const LoadedPlugin&) = delete;

    decltype(&QvPluginGetId) getId;
    decltype(&QvPluginInitialize) initialize;
    decltype(&QvPluginFinalize) finalize;
    decltype(&QvPluginGetHandlers) getHandlers;
    decltype(&QvPluginFree) free;
    decltype(&QvPluginSetNotificationCallback) setNotificationCallback;

    std::vector<HandlerEntry> handlers() const;
    CommandHandler handler(std::uint32_t command) const;

    // Executes a command the way a host does: bytes in, bytes out, the answer buffer given back.
    Answer execute(std::uint32_t command, const std::string& in) const;

    int registerServices(const Services& services) const;
    int unregisterServices(const std::vector<std::int32_t>& ids) const;
    Services getServices() const;

  private:
    void* library_;
};

// A plug-in that is initialised while the object lives.
class InitializedPlugin : public LoadedPlugin {
  public:
    InitializedPlugin() { initialize(); }
    ~InitializedPlugin() { finalize(); }
    InitializedPlugin(const InitializedPlugin&) = delete;
    InitializedPlugin& operator=(const InitializedPlugin&) = delete;
};

}  // namespace qv::tests

#endif  // QV_TESTS_LOADED_PLUGIN_H
