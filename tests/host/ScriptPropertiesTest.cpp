// The properties that the fuzz target looks at, for scripts: the corpus, and the example.

#include "host/ScriptProperties.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "support/Corpus.h"
#include "support/Files.h"

namespace qv::tests {
namespace {

TEST(ScriptProperties, HoldForTheCorpus) {
    checkCorpus("script_fuzz", fuzz::checkScriptProperties);
}

TEST(ScriptProperties, HoldForEveryBeginningOfTheExample) {
    const auto example = contentOf(QV_EXAMPLE_SCRIPT);
    ASSERT_TRUE(example);
    for (std::size_t size = 0; size < example->size(); size += 31) {
        checkInput(fuzz::checkScriptProperties, example->substr(0, size));
    }
    checkInput(fuzz::checkScriptProperties, *example);
}

void writeSeeds(const std::string& folder) {
    writeSeed(folder, "example", contentOf(QV_EXAMPLE_SCRIPT).value());
}

}  // namespace
}  // namespace qv::tests

int main(int argc, char* argv[]) {
    return qv::tests::testOrWriteSeeds(argc, argv, {qv::tests::writeSeeds});
}
