// SPDX-License-Identifier: Apache-2.0

// Loads the built plug-in with dlopen(), as a host does, and calls it only through its exported
// functions and its command table. The first load makes a directory for the log and the
// configuration and names it in the environment.
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

// Encodes the services as a serialised ServiceInfoArray, or decodes them.
std::string encode(const Services& services);
Services decode(const std::string& bytes);

// The result and the answer of a command. `answered` is false if the command left the answer
// arguments alone.
struct Answer {
    int result = 0;
    bool answered = false;
    std::string bytes;
};

class LoadedPlugin {
  public:
    // Loads the plug-in without initialising it. Aborts if the library or a function is missing.
    // The destructor unloads the plug-in without finalising it.
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

    // Executes a command as a host does, and gives the answer's buffer back to the plug-in.
    Answer execute(std::uint32_t command, const std::string& in) const;

    int registerServices(const Services& services) const;
    int unregisterServices(const std::vector<std::int32_t>& ids) const;
    Services getServices() const;

  private:
    void* library_;
};

// Loads and initialises the plug-in while the object lives.
class InitializedPlugin : public LoadedPlugin {
  public:
    InitializedPlugin() { initialize(); }
    ~InitializedPlugin() { finalize(); }
    InitializedPlugin(const InitializedPlugin&) = delete;
    InitializedPlugin& operator=(const InitializedPlugin&) = delete;
};

}  // namespace qv::tests

#endif  // QV_TESTS_LOADED_PLUGIN_H
