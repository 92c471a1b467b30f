// SPDX-License-Identifier: Apache-2.0

#include "support/RecordingLibraries.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "QvLog.h"
#include "QvUtil.h"

namespace {

std::vector<std::string> calls;
int enabledUpTo = 7;
bool logCanBeOpened = true;
const char* filePath = "";
char handleGivenOut;

std::string quoted(const char* text) {
    return '"' + std::string(text) + '"';
}

std::string handlePrefix(const void* handle) {
    if (handle == &handleGivenOut) {
        return "";
    }
    return handle == nullptr ? "null, " : "stranger, ";
}

}  // namespace

namespace qv::tests {

void startRecording(int threshold) {
    calls.clear();
    enabledUpTo = threshold;
}

std::vector<std::string> allRecordedCalls() {
    return calls;
}

std::vector<std::string> recordedCalls() {
    const std::string_view question = "LorxIsEnableLog(";
    const std::string_view write = "LorxWriteDbgLog(";
    std::vector<std::string> kept;
    std::string asked;
    for (const std::string& call : calls) {
        if (call.compare(0, question.size(), question) == 0) {
            asked = call.substr(question.size(), call.size() - question.size() - 1);
            continue;
        }
        if (call.compare(0, write.size(), write) == 0) {
            EXPECT_EQ(call.compare(write.size(), asked.size(), asked), 0)
                << "asked for " << asked << ", then: " << call;
        }
        asked = "nothing";
        kept.push_back(call);
    }
    return kept;
}

void setLogCanBeOpened(bool canBeOpened) {
    logCanBeOpened = canBeOpened;
}

void setFilePath(const char* path) {
    filePath = path;
}

}  // namespace qv::tests

int LorxIsEnableLog(void* handle, int level) {
    calls.push_back("LorxIsEnableLog(" + handlePrefix(handle) + std::to_string(level) + ")");
    return level <= enabledUpTo ? 1 : 0;
}

void LorxWriteDbgLog(void* handle, int level, const char* format, ...) {
    char record[4096];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(record, sizeof record, format, arguments);
    va_end(arguments);
    calls.push_back("LorxWriteDbgLog(" + handlePrefix(handle) + std::to_string(level) + ", " +
                    quoted(format) + ", " + quoted(record) + ")");
}

void LorxSetDbgLogLevel(void* handle, int level) {
    calls.push_back("LorxSetDbgLogLevel(" + handlePrefix(handle) + std::to_string(level) + ")");
}

void LorxReleaseDbgLog(void* handle) {
    const std::string prefix = handlePrefix(handle);
    calls.push_back("LorxReleaseDbgLog(" + prefix.substr(0, prefix.find(',')) + ")");
}

int QvInitDebugByConfig(void** handle, const char* configName, const char* module,
                        const char* logPath) {
    calls.push_back("QvInitDebugByConfig(" + quoted(configName) + ", " + quoted(module) + ", " +
                    quoted(logPath) + ")");
    *handle = logCanBeOpened ? &handleGivenOut : nullptr;
    return logCanBeOpened ? 0 : -1;
}

char* QvGetFilePath(char* buffer, int size, const char* fileName) {
    calls.push_back("QvGetFilePath(" + std::to_string(size) + ", " + quoted(fileName) + ")");
    if (filePath == nullptr) {
        return nullptr;
    }
    const bool isOwn = *filePath == '\0';
    std::snprintf(buffer, static_cast<std::size_t>(size), "%s%s", isOwn ? "/nonexistent/" : "",
                  isOwn ? fileName : filePath);
    return buffer;
}

void QvSetUtilDebugLevel(int level) {
    calls.push_back("QvSetUtilDebugLevel(" + std::to_string(level) + ")");
}
