// SPDX-License-Identifier: Apache-2.0

// Checks whether the generator supports a definition file. The file has to be proto2 for the lite
// runtime, with messages and enums at the top level. A name that C++ does not allow shows when the
// generated code is compiled.
#ifndef QV_CODEGEN_DEFINITION_CHECK_H
#define QV_CODEGEN_DEFINITION_CHECK_H

#include <google/protobuf/descriptor.h>

#include <string>

namespace qor::kevra::codegen {

// Returns an empty string for a supported file. Otherwise returns what is not supported, and where
// it stands.
std::string refusal(const google::protobuf::FileDescriptor& file);

}  // namespace qor::kevra::codegen

#endif  // QV_CODEGEN_DEFINITION_CHECK_H
