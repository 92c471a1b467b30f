#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "support/SharedLibrary.h"

namespace {

using testing::AnyOf;
using testing::Each;
using testing::HasSubstr;

TEST(ClientLibrary, ShowsItsHeadersNamesAndNothingElse) {
    const std::set<std::string> symbols = qv::tests::exportedSymbols(QV_CLIENT_LIBRARY);
    EXPECT_THAT(symbols, Each(AnyOf(HasSubstr("2qv6client6Client"), HasSubstr("2qv6client5Error"),
                                    HasSubstr("2qv6client12Subscription"),
                                    HasSubstr("2qv6client17defaultSocketPath"))));
    // A program calls these functions, constructors and destructors.
    for (const char* name :
         {"6ClientC1E", "6ClientD1E", "16registerServicesE", "8servicesE", "18unregisterServicesE",
          "4syncE", "6statusE", "13setDebugLevelE", "4pingE", "5ErrorC1E", "17defaultSocketPath",
          "TIN2qv6client5ErrorE"}) {
        EXPECT_THAT(symbols, testing::Contains(HasSubstr(name)));
    }
}

}  // namespace
