// SPDX-License-Identifier: Apache-2.0

// Makes a plug-in of the tests behave as QVHOST_FAKE in the environment says:
//
//     (initialize|request|finalize) throws (text|bad_alloc|exception|number)
//     (initialize|request) fails
//     (initialize|request) waits at the pipe     that QVHOST_FAKE_PIPE names
//
// A plug-in may know further behaviours. If the variable is @ and a path, the behaviour is read
// from that file at every call, so that another process can change it.
//
// Records the calls in the file that QVHOST_FAKE_RECORD names, one in each line. A call that a host
// must not make ends the process.
#ifndef QVHOST_PLUGIN_BEHAVIOUR_H
#define QVHOST_PLUGIN_BEHAVIOUR_H

#include <string>

namespace qv::tests {

// Tells whether the plug-in is to behave so.
bool isTold(const std::string& behaviour);

void record(const std::string& line);

void mustBe(bool right);

// The plug-in calls these at the begin of its functions. They record the call and disturb it.
// beginInitialize() returns whether the plug-in goes on.
bool beginInitialize();
void beginFinalize();

// A request while it is executed. Its bytes are recorded in hexadecimal.
class Request {
  public:
    Request(int command, const void* in, int inLen);
    ~Request();

    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;
};

}  // namespace qv::tests

#endif  // QVHOST_PLUGIN_BEHAVIOUR_H
