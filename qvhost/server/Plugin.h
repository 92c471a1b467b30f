// SPDX-License-Identifier: Apache-2.0

// Loads a plug-in and calls it as any host does.
//
//     Plugin plugin("/usr/lib/libnamingService.so");
//     plugin.initialize();
//     const Plugin::Answer answer = plugin.call(QV_COMMAND_GET_SERVICES, {});
//     ... answer.bytes() ...
//     plugin.finalize();
//
// A call finds the handler by its command code. Requests and answers cross the interface as
// serialised bytes. PluginError stands for whatever the plug-in throws. Only call() may run on
// several threads at once.
#ifndef QVHOST_SERVER_PLUGIN_H
#define QVHOST_SERVER_PLUGIN_H

#include <QvPlugin.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv::host {

// The name of the plug-in's configuration file.
constexpr char kConfigurationName[] = "namingService.conf.plist";

class Plugin {
  public:
    struct CommandRow {
        uint32_t code = 0;
        std::string name;
    };

    // The answer to a command: a result code, and bytes that belong to the plug-in. The destructor
    // gives the bytes back. Must not outlive the Plugin.
    class Answer {
      public:
        Answer(Answer&& other) noexcept;
        ~Answer();

        Answer(const Answer&) = delete;
        Answer& operator=(const Answer&) = delete;
        Answer& operator=(Answer&&) = delete;

        int result() const { return result_; }
        std::string_view bytes() const;

      private:
        friend class Plugin;

        explicit Answer(decltype(QvPluginFree)* release) : release_(release) {}

        // Tells whether data and length fit each other. A plug-in may get them wrong.
        bool possible() const { return data_ == nullptr ? length_ == 0 : length_ >= 0; }

        decltype(QvPluginFree)* release_;
        void* data_ = nullptr;
        int length_ = 0;
        int result_ = QV_OK;
    };

    // Loads the library and takes its command table, but does not initialise the plug-in. Throws
    // PluginError if the library cannot be loaded, lacks a function of the interface or gives no
    // table.
    explicit Plugin(const std::string& path);

    // Finalises an initialised plug-in and unloads the library.
    ~Plugin();

    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;
    Plugin(Plugin&&) = delete;
    Plugin& operator=(Plugin&&) = delete;

    // Returns the absolute path of the library.
    const std::string& path() const { return path_; }

    int32_t id() const { return id_; }

    // Returns the command table in its own order.
    std::vector<CommandRow> commands() const;

    // Returns the path of the plug-in's configuration file, which the plug-in's utility library
    // tells. The path is empty if it is too long for the plug-in. Returns nothing if the plug-in
    // uses no such library.
    std::optional<std::string> configurationPath() const;

    // Initialises the plug-in. Finalises it and throws PluginError if that fails.
    void initialize();

    // Finalises an initialised plug-in. Throws PluginError.
    void finalize();

    // Executes a command with these bytes as its input. Returns its answer, whatever its result.
    // May run on several threads at once, but not beside initialize() or finalize(). Throws
    // UnknownCommandError if the table lacks the command. Throws PluginError if the plug-in is not
    // initialised, is not the naming service, throws, or gives an impossible answer.
    Answer call(uint32_t command, std::string_view input) const;

  private:
    struct Unloader {
        void operator()(void* library) const;
    };

    template <typename Function>
    Function* findFunction(const char* name) const;

    void finalizeQuietly();

    std::string path_;
    std::unique_ptr<void, Unloader> library_;
    decltype(QvPluginInitialize)* initialize_ = nullptr;
    decltype(QvPluginFinalize)* finalize_ = nullptr;
    decltype(QvPluginFree)* free_ = nullptr;
    const HandlerEntry* table_ = nullptr;  // `rows_` rows, the library's
    int32_t rows_ = 0;
    int32_t id_ = 0;
    bool initialized_ = false;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_PLUGIN_H
