// SPDX-License-Identifier: Apache-2.0

// Lists every message type of the definition files. AllMessages<testing::Types> gives the list to a
// variadic template. Fuzz corpora refer to a type by its index, so a new type goes to the end.
#ifndef QV_TESTS_ALL_MESSAGES_H
#define QV_TESTS_ALL_MESSAGES_H

#include <string>

#include "KevraCommonMsg.pb.h"
#include "namingService.pb.h"

namespace qv::tests {

template <template <class...> class List>
using AllMessages =
    List<qor::kevra::ServiceInfo, qor::kevra::ServiceInfoArray, qor::kevra::BoolType,
         qor::kevra::UIntType, qor::kevra::IntType, qor::kevra::IntArray, qor::kevra::UIntArray,
         qor::kevra::StringType, qor::kevra::UIntPair, qor::kevra::UIntPairArray,
         qor::kevra::NullObject, qor::kevra::ProxyData, qor::kevra::EventData,
         qor::kevra::TaskScheduleData, qor::kevra::DebugOption, qor::kevra::FileEvent,
         qor::kevra::FileEventArray, qor::kevra::FileEventResult, qor::kevra::sperateConfig,
         qor::kevra::RegFileEvent, qor::kevra::URLEvent, qor::kevra::RegNetworkEvent,
         qor::kevra::NetworkEvent, qor::kevra::URLEventArray, qor::kevra::NetworkEventArray>;

// Names the tests of each type. GetName() returns "ServiceInfo" for qor::kevra::ServiceInfo.
struct MessageName {
    template <class T>
    static std::string GetName(int /*index*/) {
        return std::string(T::kTypeName).substr(std::string("qor.kevra.").size());
    }
};

}  // namespace qv::tests

#endif  // QV_TESTS_ALL_MESSAGES_H
