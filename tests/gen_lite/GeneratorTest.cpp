// SPDX-License-Identifier: Apache-2.0

// Shows which definition files the protoc plug-in accepts, and how it refuses the others.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>

#include "support/TemporaryDirectory.h"

namespace qv::tests {
namespace {

using testing::HasSubstr;

struct Outcome {
    int status;
    std::string output;
};

Outcome run(const std::string& command) {
    std::FILE* const pipe = ::popen((command + " 2>&1").c_str(), "r");
    std::string output;
    char chunk[256];
    while (std::fgets(chunk, sizeof chunk, pipe) != nullptr) {
        output += chunk;
    }
    const int status = ::pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

Outcome generate(const TemporaryDirectory& directory, const std::string& definition) {
    std::ofstream(directory.path("test.proto")) << definition;
    const auto quoted = [](const std::string& word) { return " '" + word + "'"; };
    return run(quoted(QV_PROTOC) + quoted("--plugin=protoc-gen-kevra=" QV_GENERATOR) +
               quoted("--kevra_out=" + directory.path()) + quoted("-I" + directory.path()) +
               quoted(directory.path("test.proto")));
}

constexpr char kHead[] = "syntax = \"proto2\"; package p; option optimize_for = LITE_RUNTIME;\n";

TEST(Generator, AcceptsAPlainFile) {
    const TemporaryDirectory directory;
    const Outcome outcome = generate(directory, std::string(kHead) + "message A {}");
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_TRUE(std::ifstream(directory.path("test.pb.h")).good());
    EXPECT_TRUE(std::ifstream(directory.path("test.pb.cc")).good());
}

TEST(Generator, RefusesUnsupportedDefinitionsByName) {
    const struct {
        std::string definition;
        const char* message;
    } refused[] = {
        {"syntax = \"proto3\"; option optimize_for = LITE_RUNTIME; message A {}",
         "only proto2 is supported"},
        {"syntax = \"proto2\"; package p; message A {}", "optimize_for = LITE_RUNTIME is missing"},
        {std::string(kHead) + "message A { oneof o { int32 i = 1; } }",
         "p.A: extensions and oneofs are not supported"},
        {std::string(kHead) + "message A { extensions 5 to 9; }",
         "p.A: extensions and oneofs are not supported"},
        {std::string(kHead) + "message A { optional group G = 1 {} }",
         "p.A: types within a message are not supported"},
        {std::string(kHead) + "message A { map<int32, string> m = 1; }",
         "p.A: types within a message are not supported"},
        {std::string(kHead) + "message A { enum E { X = 1; } }",
         "p.A: types within a message are not supported"},
        {std::string(kHead) + "message A { optional string s = 1 [default = \"x\"]; }",
         "p.A.s: this type, label or default is not supported"},
        {std::string(kHead) + "message A { optional uint32 u = 1 [default = 1]; }",
         "p.A.u: this type, label or default is not supported"},
        {std::string(kHead) + "message A { repeated int32 i = 1 [packed = true]; }",
         "p.A.i: this type, label or default is not supported"},
        {std::string(kHead) + "enum E { X = 0; } message A { repeated E e = 1; }",
         "p.A.e: this type, label or default is not supported"},
        {std::string(kHead) + "service S {}", "extensions and services are not supported"},
        {"syntax = \"proto2\"; option optimize_for = LITE_RUNTIME; message A {}",
         "a package is required"},
    };
    for (const auto& [definition, message] : refused) {
        const TemporaryDirectory directory;
        const Outcome outcome = generate(directory, definition);
        EXPECT_NE(outcome.status, 0) << definition;
        EXPECT_THAT(outcome.output, HasSubstr(message));
        EXPECT_FALSE(std::ifstream(directory.path("test.pb.h")).good()) << definition;
    }
}

TEST(Generator, RefusesTypesThatTheMessagesDoNotUse) {
    for (const std::string type : {"sint32", "sint64", "fixed32", "fixed64", "sfixed32", "sfixed64",
                                   "float", "double", "bytes"}) {
        const TemporaryDirectory directory;
        const Outcome outcome =
            generate(directory, kHead + ("message A { optional " + type + " f = 1; }"));
        EXPECT_NE(outcome.status, 0) << type;
        EXPECT_THAT(outcome.output, HasSubstr("p.A.f: this type"));
    }
}

}  // namespace
}  // namespace qv::tests
