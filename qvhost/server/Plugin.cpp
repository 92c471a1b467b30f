// SPDX-License-Identifier: Apache-2.0

#include "server/Plugin.h"

#include <QvResult.h>
#include <QvUtil.h>
#include <dlfcn.h>
#include <fmt/format.h>

#include <cstddef>
#include <cstring>
#include <exception>
#include <filesystem>
#include <limits>
#include <utility>

#include "server/ErrorText.h"
#include "server/PluginError.h"

namespace qv::host {

namespace {

// The plug-in's own bound. The NUL counts.
constexpr int kLongestPath = 2048;

// Makes a call into the plug-in and turns what it throws into a PluginError. `attempt` says what
// was tried.
template <typename Call>
auto guarded(std::string_view attempt, Call call) -> decltype(call()) {
    std::string reason;
    try {
        return call();
    } catch (const std::string& text) {
        reason = text;
    } catch (const std::exception& error) {
        reason = textOf(error);
    } catch (...) {
        reason = "it threw something that is no C++ exception class";
    }
    throw PluginError(fmt::format("{}: the plug-in failed: {}", attempt, reason));
}

void check(int result, const std::string& attempt) {
    if (result == QV_OK) {
        return;
    }
    throw PluginError(
        fmt::format("{}: the plug-in answered {} ({})", attempt, result, resultMeaning(result)));
}

// The loader begins most of its messages with the file's name, which ours names already.
std::string loaderError(const std::string& path) {
    const char* const error = dlerror();
    const std::string text = error == nullptr ? "unknown reason" : error;
    const std::string prefix = path + ": ";
    return text.compare(0, prefix.size(), prefix) == 0 ? text.substr(prefix.size()) : text;
}

}  // namespace

Plugin::Answer::Answer(Answer&& other) noexcept
    : release_(other.release_),
      data_(std::exchange(other.data_, nullptr)),
      length_(std::exchange(other.length_, 0)),
      result_(other.result_) {}

Plugin::Answer::~Answer() {
    if (data_ != nullptr) {
        release_(data_);
    }
}

std::string_view Plugin::Answer::bytes() const {
    return {static_cast<const char*>(data_), static_cast<std::size_t>(length_)};
}

void Plugin::Unloader::operator()(void* library) const {
    dlclose(library);
}

template <typename Function>
Function* Plugin::findFunction(const char* name) const {
    void* const symbol = dlsym(library_.get(), name);
    if (symbol == nullptr) {
        throw PluginError(
            fmt::format("cannot use {} as a plug-in: it has no function {}", path_, name));
    }
    return reinterpret_cast<Function*>(symbol);
}

Plugin::Plugin(const std::string& path)
    // Without a slash the loader would search its own directories, not the current one.
    : path_(std::filesystem::absolute(path).lexically_normal().string()),
      library_(dlopen(path_.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (library_ == nullptr) {
        throw PluginError(fmt::format("cannot load {}: {}", path_, loaderError(path_)));
    }
    auto* const getId = findFunction<decltype(QvPluginGetId)>("QvPluginGetId");
    auto* const getHandlers = findFunction<decltype(QvPluginGetHandlers)>("QvPluginGetHandlers");
    initialize_ = findFunction<decltype(QvPluginInitialize)>("QvPluginInitialize");
    finalize_ = findFunction<decltype(QvPluginFinalize)>("QvPluginFinalize");
    free_ = findFunction<decltype(QvPluginFree)>("QvPluginFree");

    const std::string attempt = fmt::format("cannot take the command table of {}", path_);
    id_ = guarded(attempt, [&] { return getId(); });
    void* reserved = nullptr;
    check(guarded(attempt, [&] { return getHandlers(&table_, &rows_, &reserved); }), attempt);
    if (table_ == nullptr || rows_ < 0) {
        throw PluginError(attempt + ": the plug-in gave none");
    }
}

Plugin::~Plugin() {
    finalizeQuietly();
}

std::vector<Plugin::CommandRow> Plugin::commands() const {
    std::vector<CommandRow> commands;
    for (int32_t row = 0; row < rows_; ++row) {
        const HandlerEntry& entry = table_[row];
        commands.push_back({entry.command, {entry.name, strnlen(entry.name, sizeof entry.name)}});
    }
    return commands;
}

std::optional<std::string> Plugin::configurationPath() const {
    // In the libraries that the plug-in brought with it, too.
    void* const symbol = dlsym(library_.get(), "QvGetFilePath");
    if (symbol == nullptr) {
        return std::nullopt;
    }
    char path[kLongestPath];
    const auto getFilePath = reinterpret_cast<decltype(&QvGetFilePath)>(symbol);
    return getFilePath(path, kLongestPath, kConfigurationName) == nullptr ? "" : path;
}

void Plugin::initialize() {
    const std::string attempt = fmt::format("cannot initialise {}", path_);
    // Set first: a plug-in that failed half-way has a log open, which finalising closes.
    initialized_ = true;
    try {
        check(guarded(attempt, [&] { return initialize_(); }), attempt);
    } catch (const PluginError&) {
        finalizeQuietly();
        throw;
    }
}

void Plugin::finalize() {
    if (!initialized_) {
        return;
    }
    initialized_ = false;
    guarded(fmt::format("cannot finalise {}", path_), [&] { finalize_(); });
}

void Plugin::finalizeQuietly() {
    try {
        finalize();
    } catch (const std::exception&) {
        // Somebody is leaving because of an error that matters more than this one.
        return;
    }
}

Plugin::Answer Plugin::call(uint32_t command, std::string_view input) const {
    constexpr std::string_view kAttempt = "cannot execute the command";
    if (!initialized_) {
        throw PluginError(fmt::format("{}: the plug-in is not initialised", kAttempt));
    }
    // Another plug-in gives other meanings to the same command codes.
    if (id_ != QV_PLUGIN_ID_NAMING_SERVICE) {
        throw PluginError(fmt::format("{}: {} is plug-in {}, and the naming service is plug-in {}",
                                      kAttempt, path_, id_, int{QV_PLUGIN_ID_NAMING_SERVICE}));
    }
    const HandlerEntry* row = table_;
    const HandlerEntry* const end = table_ + rows_;
    while (row != end && row->command != command) {
        ++row;
    }
    if (row == end || row->handler == nullptr) {
        throw UnknownCommandError(
            fmt::format("{}: the plug-in's table has no command {:#06x}", kAttempt, command));
    }
    if (input.size() > std::numeric_limits<int>::max()) {
        throw PluginError(
            fmt::format("{}: the request is longer than a plug-in can take", kAttempt));
    }
    Answer answer(free_);
    answer.result_ = guarded(kAttempt, [&] {
        return row->handler(static_cast<int>(command), input.data(), static_cast<int>(input.size()),
                            &answer.data_, &answer.length_);
    });
    if (!answer.possible()) {
        throw PluginError(fmt::format("{}: the plug-in's answer has the impossible length {}",
                                      kAttempt, answer.length_));
    }
    return answer;
}

}  // namespace qv::host
