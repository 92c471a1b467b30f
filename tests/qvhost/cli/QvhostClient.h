// SPDX-License-Identifier: Apache-2.0

// Runs the program as a client of a resident host:
//
//     TEST_F(QvhostClient, ListsTheServices) {
//         done({"register", "1", "a"});
//         EXPECT_EQ(done({"list"}), "ID  ADDRESS\n 1  a\n");
//     }
#ifndef QV_TESTS_QVHOST_CLIENT_H
#define QV_TESTS_QVHOST_CLIENT_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/ProgramRun.h"

namespace qv::host {

using Arguments = std::vector<std::string>;

// Runs a host, and the program as its client.
class QvhostClient : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(host_.start()) << host_.errors(); }

    Arguments withSocket(Arguments arguments) const {
        arguments.insert(arguments.begin(), {"--socket", host_.socket()});
        return arguments;
    }

    ProgramOutcome run(const Arguments& arguments, const std::string& input = "") {
        return program_.run(withSocket(arguments), input);
    }

    // Expects success and nothing on standard error. Returns the output.
    std::string done(const Arguments& arguments, const std::string& input = "") {
        const ProgramOutcome outcome = run(arguments, input);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "");
        return outcome.out;
    }

    std::string path(const std::string& name) const { return program_.files().path(name); }

    HostProcess host_;
    ProgramRun program_;
};

}  // namespace qv::host

#endif  // QV_TESTS_QVHOST_CLIENT_H
