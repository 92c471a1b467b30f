#include "server/PluginService.h"

#include <QvText.h>

#include <exception>
#include <new>
#include <optional>
#include <utility>

#include "server/PluginError.h"

namespace qv::host {

namespace {

std::string messageOf(const std::exception& error) {
    return dynamic_cast<const std::bad_alloc*>(&error) != nullptr ? "out of memory" : error.what();
}

}  // namespace

void PluginService::initialize() {
    works_ = false;
    initialize_();
    works_ = true;
}

void PluginService::answer(const Frame& request, AnswerQueue& answers) {
    const uint32_t number = request.header.number;
    if (request.header.code == QV_HOST_COMMAND_PING) {
        answers.append(QV_OK, number);
        return;
    }
    std::optional<Plugin::Answer> answer;
    uint32_t problem = QV_HOST_ERROR_PLUGIN;
    std::string text;
    try {
        const ReloadGate::Pass pass(gate_);
        answer.emplace(plugin_.call(request.header.code, request.bytes));
    } catch (const UnknownCommandError& error) {
        problem = QV_HOST_ERROR_COMMAND;
        text = error.what();
    } catch (const PluginError& error) {
        text = error.what();
    }
    if (answer) {
        answers.append(number, std::move(*answer));
    } else {
        // A text that the plug-in threw may hold any bytes.
        answers.append(problem, number, text::escaped(text));
    }
}

std::vector<std::string> PluginService::reload() {
    std::vector<std::string> problems;
    try {
        plugin_.finalize();
    } catch (const std::exception& error) {
        problems.push_back(messageOf(error));
    }
    try {
        initialize();
    } catch (const std::exception& error) {
        problems.push_back(messageOf(error));
    }
    gate_.open();
    return problems;
}

}  // namespace qv::host
