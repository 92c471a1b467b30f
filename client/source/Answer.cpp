// SPDX-License-Identifier: Apache-2.0

#include "Answer.h"

#include <QvFrame.h>
#include <QvPlugin.h>
#include <QvResult.h>
#include <QvText.h>

#include <utility>

namespace qv::client {

bool isHostResult(uint32_t result) {
    return result >= 21000 && result < 22000;
}

bool endsTheConnection(uint32_t result) {
    return (result >= QV_HOST_ERROR_FORBIDDEN && result <= QV_HOST_ERROR_STOPPING) ||
           result == QV_HOST_ERROR_SUBSCRIBED;
}

std::string bytesOf(Answer answer) {
    const auto code = static_cast<int32_t>(answer.result);
    if (isHostResult(answer.result)) {
        throw Error(Error::Kind::Refused, code,
                    "the host refused: " + (answer.bytes.empty() ? "result " + std::to_string(code)
                                                                 : text::printable(answer.bytes)));
    }
    if (answer.result != QV_OK) {
        throw Error(Error::Kind::Result, code,
                    "the plug-in answered " + std::to_string(answer.result) + " (" +
                        resultMeaning(code) + ")");
    }
    return std::move(answer.bytes);
}

Error brokenAnswer(const std::string& reason) {
    return {Error::Kind::BrokenAnswer, 0, "the host's answer is broken: " + reason};
}

}  // namespace qv::client
