#include "Plugin.h"

#include <QvResult.h>
#include <QvUtil.h>
#include <dlfcn.h>
#include <fmt/format.h>
#include <google/protobuf/io/coded_stream.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <filesystem>
#include <limits>
#include <new>
#include <utility>

#include "KevraCommonMsg.pb.h"
#include "PluginError.h"
#include "namingService.pb.h"

namespace qv::host {

namespace {

// As the plug-in has them; the length counts the NUL.
constexpr char kConfigurationName[] = "namingService.conf.plist";
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
    } catch (const std::bad_alloc&) {
        reason = "out of memory";
    } catch (const std::exception& exception) {
        reason = exception.what();
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

Plugin::Answer Plugin::attemptCall(uint32_t command, std::string_view input,
                                   std::string_view attempt) const {
    if (!initialized_) {
        throw PluginError(fmt::format("{}: the plug-in is not initialised", attempt));
    }
    // Command codes mean something only together with the plug-in they belong to.
    if (id_ != QV_PLUGIN_ID_NAMING_SERVICE) {
        throw PluginError(fmt::format("{}: {} is plug-in {}, and the naming service is plug-in {}",
                                      attempt, path_, id_, int{QV_PLUGIN_ID_NAMING_SERVICE}));
    }
    const HandlerEntry* row = table_;
    const HandlerEntry* const end = table_ + rows_;
    while (row != end && row->command != command) {
        ++row;
    }
    if (row == end || row->handler == nullptr) {
        throw UnknownCommandError(
            fmt::format("{}: the plug-in's table has no command {:#06x}", attempt, command));
    }
    if (input.size() > std::numeric_limits<int>::max()) {
        throw PluginError(
            fmt::format("{}: the request is longer than a plug-in can take", attempt));
    }
    Answer answer(free_);
    answer.result_ = guarded(attempt, [&] {
        return row->handler(static_cast<int>(command), input.data(), static_cast<int>(input.size()),
                            &answer.data_, &answer.length_);
    });
    if (!answer.possible()) {
        throw PluginError(fmt::format("{}: the plug-in's answer has the impossible length {}",
                                      attempt, answer.length_));
    }
    return answer;
}

Plugin::Answer Plugin::call(uint32_t command, std::string_view input) const {
    return attemptCall(command, input, "cannot execute the command");
}

Plugin::Answer Plugin::request(uint32_t command, std::string_view input,
                               const std::string& attempt) const {
    Answer answer = attemptCall(command, input, attempt);
    check(answer.result(), attempt);
    return answer;
}

void Plugin::registerServices(const std::vector<Service>& services) {
    const std::string attempt = services.size() == 1
                                    ? fmt::format("cannot register service {}", services.front().id)
                                    : fmt::format("cannot register {} services", services.size());
    qor::kevra::ServiceInfoArray message;
    for (const Service& service : services) {
        qor::kevra::ServiceInfo* const info = message.add_services();
        info->set_id(service.id);
        info->set_address(service.address);
    }
    request(QV_COMMAND_REGISTER_SERVICES, message.SerializeAsString(), attempt);
}

void Plugin::unregisterServices(const std::vector<int32_t>& ids) {
    const std::string attempt = ids.size() == 1
                                    ? fmt::format("cannot unregister service {}", ids.front())
                                    : fmt::format("cannot unregister {} services", ids.size());
    qor::kevra::ServiceInfoArray message;
    for (const int32_t id : ids) {
        message.add_services()->set_id(id);
    }
    request(QV_COMMAND_UNREGISTER_SERVICES, message.SerializeAsString(), attempt);
}

std::vector<Service> Plugin::services() {
    const std::string attempt = "cannot list the services";
    const Answer answer = request(QV_COMMAND_GET_SERVICES, {}, attempt);
    qor::kevra::ServiceInfoArray message;
    const std::string_view bytes = answer.bytes();
    const int size = static_cast<int>(bytes.size());
    google::protobuf::io::CodedInputStream input(
        reinterpret_cast<const std::uint8_t*>(bytes.data()), size);
    // A listing may be longer than what a parse reads by default.
    input.SetTotalBytesLimit(size);
    if (!message.ParseFromCodedStream(&input) || !input.ConsumedEntireMessage()) {
        throw PluginError(attempt + ": the plug-in's answer is no list of services");
    }
    std::vector<Service> services;
    services.reserve(static_cast<std::size_t>(message.services_size()));
    for (int i = 0; i < message.services_size(); ++i) {
        services.push_back({message.services(i).id(), message.services(i).address()});
    }
    return services;
}

void Plugin::setDebugLevel(int32_t level) {
    const std::string attempt = fmt::format("cannot set the debug level to {}", level);
    qor::kevra::DebugOption message;
    message.set_plugins(id_);
    message.set_debug_level(level);
    const int result =
        attemptCall(QV_COMMAND_SET_DEBUG_LEVEL, message.SerializeAsString(), attempt).result();
    if (result == QV_ERROR_ARGUMENT) {
        throw PluginError(fmt::format("{}: level must be 0 to 7 (the plug-in refused it with {})",
                                      attempt, result));
    }
    check(result, attempt);
}

}  // namespace qv::host
