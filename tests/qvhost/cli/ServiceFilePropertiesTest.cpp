// SPDX-License-Identifier: Apache-2.0

// Checks the properties of the fuzz target for files of services: for the corpus, and for written
// files that are cut and changed at every place.

#include "qvhost/ServiceFileProperties.h"

#include <gtest/gtest.h>
#include "cli/Output.h"

#include <cstddef>
#include <string>
#include <string_view>

#include "support/Corpus.h"

namespace qv::tests {
namespace {

using host::Format;
using namespace std::string_view_literals;

std::string written(Format format) {
    return host::formatServices({{-2147483648, " "},
                                 {0, "a,\"b\""},
                                 {16, "x\r\ny\nz"},
                                 {2147483647, "\xc3\xa9 \xf0\x9f\x98\x80"}},
                                format);
}

TEST(ServiceFileProperties, HoldForTheCorpus) {
    checkCorpus("service_file_fuzz", fuzz::checkServiceFileProperties);
}

TEST(ServiceFileProperties, HoldForEveryBeginningOfAWrittenFile) {
    for (const Format format : {Format::Csv, Format::Json}) {
        const std::string text = written(format);
        for (std::size_t size = 0; size <= text.size(); ++size) {
            checkInput(fuzz::checkServiceFileProperties, text.substr(0, size));
        }
    }
}

TEST(ServiceFileProperties, HoldForAChangeOfEveryByte) {
    for (const Format format : {Format::Csv, Format::Json}) {
        const std::string text = written(format);
        for (std::size_t place = 0; place < text.size(); ++place) {
            for (const char c : "\0\n\r\",:[]{}\\x0-\x80\xc3\xff"sv) {
                std::string changed = text;
                changed[place] = c;
                checkInput(fuzz::checkServiceFileProperties, changed);
            }
        }
    }
}

void writeSeeds(const std::string& folder) {
    writeSeed(folder, "written.csv", written(Format::Csv));
    writeSeed(folder, "written.json", written(Format::Json));
}

}  // namespace
}  // namespace qv::tests

int main(int argc, char* argv[]) {
    return qv::tests::testOrWriteSeeds(argc, argv, {qv::tests::writeSeeds});
}
