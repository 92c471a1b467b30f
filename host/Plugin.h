// A loaded plug-in: its library, its command table, and the naming service's requests as functions.
//
//     Plugin plugin("/usr/lib/libnamingService.so");
//     plugin.initialize();
//     plugin.registerServices({{1, "/run/a.sock"}});
//     for (const Service& service : plugin.services()) ...
//     plugin.finalize();
//
// Every request finds its handler by command code and crosses the interface as serialised bytes, as
// any host's would; answers are given back to the plug-in. What the plug-in throws is turned into
// PluginError, as is every result but QV_OK, unless it is call() that answers it. One thread at a
// time, but for call().
#ifndef QVHOST_PLUGIN_H
#define QVHOST_PLUGIN_H

#include <QvPlugin.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Service.h"

namespace qv::host {

class Plugin {
  public:
    struct CommandRow {
        uint32_t code = 0;
        std::string name;
    };

    // What a command answered: its result code, and bytes that are the plug-in's until the object
    // goes, which gives them back. Must not outlive the Plugin.
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

        // The plug-in may say that there are bytes and give none, or fewer than none.
        bool possible() const { return data_ == nullptr ? length_ == 0 : length_ >= 0; }

        decltype(QvPluginFree)* release_;
        void* data_ = nullptr;
        int length_ = 0;
        int result_ = QV_OK;
    };

    // Loads the library and takes its command table; does not initialise it. Throws PluginError
    // when it cannot be loaded, lacks a function of the interface or gives no table.
    explicit Plugin(const std::string& path);

    // Finalises an initialised plug-in and unloads the library.
    ~Plugin();

    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;
    Plugin(Plugin&&) = delete;
    Plugin& operator=(Plugin&&) = delete;

    // The library's absolute path.
    const std::string& path() const { return path_; }

    int32_t id() const { return id_; }

    // The command table, in its own order.
    std::vector<CommandRow> commands() const;

    // The path of its configuration file, as the utility library that it uses tells it; empty when
    // it is too long. None when it uses no such library.
    std::optional<std::string> configurationPath() const;

    // Throws PluginError; the plug-in is finalised then.
    void initialize();

    // Throws PluginError. Does nothing when not initialised.
    void finalize();

    // Executes one command with these bytes as its input, and answers whatever result it has. May
    // run on several threads at once, but not while initialize() or finalize() runs. Throws
    // UnknownCommandError, and PluginError when the plug-in is not initialised, is not the naming
    // service's, throws, or answers what cannot be.
    Answer call(uint32_t command, std::string_view input) const;

    // The requests need an initialised plug-in. Each throws PluginError.
    void registerServices(const std::vector<Service>& services);
    void unregisterServices(const std::vector<int32_t>& ids);
    std::vector<Service> services();
    void setDebugLevel(int32_t level);

  private:
    struct Unloader {
        void operator()(void* library) const;
    };

    template <typename Function>
    Function* findFunction(const char* name) const;

    void finalizeQuietly();

    // call(), with what was tried, for the errors.
    Answer attemptCall(uint32_t command, std::string_view input, std::string_view attempt) const;

    // The same, for requests that cannot go on after any result but QV_OK.
    Answer request(uint32_t command, std::string_view input, const std::string& attempt) const;

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

#endif  // QVHOST_PLUGIN_H
