#include "cli/PropertyListFile.h"

#include <QvCFDictionary.h>
#include <QvSystem/Files.h>
#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <system_error>
#include <utility>

namespace qv::host {

namespace {

using State = PropertyListFile::State;

// The plug-in takes a larger file for a damaged one.
constexpr std::size_t kLongestFile = std::numeric_limits<std::int32_t>::max();

PropertyListFile failure(State state, std::string problem) {
    return {state, {}, std::move(problem)};
}

}  // namespace

PropertyListFile loadPropertyList(const std::string& path) {
    constexpr char kNoDictionary[] = "is no property list with a dictionary as its root";
    std::string document;
    const std::error_code error = system::readRegularFile(path, kLongestFile, document);
    if (error == std::errc::no_such_file_or_directory) {
        return failure(State::Missing, "does not exist");
    }
    if (error == std::errc::invalid_argument) {
        return failure(State::Unusable, kNoDictionary);
    }
    if (error && error != std::errc::file_too_large) {
        return failure(State::Unusable, fmt::format("cannot be read: {}", error.message()));
    }
    if (error || document.empty()) {
        return failure(State::Damaged, kNoDictionary);
    }
    qor::kevra::CFHolder<CFDictionaryRef> root =
        qor::kevra::readDictionary(document.data(), document.size());
    return root ? PropertyListFile{State::Good, std::move(root), ""}
                : failure(State::Damaged, kNoDictionary);
}

}  // namespace qv::host
