// SPDX-License-Identifier: Apache-2.0

// Checks the properties of the plug-in for any sequence of calls and of changes to its files. The
// fuzz target searches for sequences that break a property. The tests check the sequences of the
// corpus.
#ifndef QV_FUZZ_HANDLER_PROPERTIES_H
#define QV_FUZZ_HANDLER_PROPERTIES_H

#include <cstddef>
#include <cstdint>

namespace qv::fuzz {

// Carries out the steps of the input on the plug-in and on a model. Compares the two after each
// step: the results, the answer to get-services, the debug level and the bytes of both files.
// Compares the number of open descriptors at the end. Aborts with a message if something differs.
//
// Each step begins with a letter. ID is one signed byte, TEXT is one byte for the length and the
// text, and N is one byte.
//
//     i          Initialises the plug-in.
//     f          Finalises the plug-in.
//     s          Restarts the plug-in.
//     r ID TEXT  Registers a service.
//     u ID       Unregisters a service.
//     R TEXT     Registers with the text as the request.
//     U TEXT     Unregisters with the text as the request.
//     L TEXT     Sets the debug level with the text as the request.
//     n          Makes the calls that the plug-in refuses: null pointers and invalid lengths.
//     w TEXT     Overwrites the file.
//     W TEXT     Replaces the file by another.
//     g ID TEXT  Overwrites the file by a good document with the service and another key.
//     d          Puts a directory in place of the file.
//     x          Removes the file.
//     b TEXT     Overwrites the backup.
//     y          Removes the backup.
//     c          Replaces the file by a copy of the backup.
//     h N        Cuts the file to N bytes.
//
// Other letters do nothing. Service requests to a plug-in that is not initialised do nothing
// either, because no host makes them.
void checkHandlerProperties(const std::uint8_t* data, std::size_t size);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_HANDLER_PROPERTIES_H
