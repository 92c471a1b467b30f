// Which definition files the generator takes: proto2 for the lite runtime, with messages and enums
// at the top level and names that C++ allows. All else it refuses, naming the place, rather than to
// make something else of it.
#ifndef QV_CODEGEN_DEFINITION_CHECK_H
#define QV_CODEGEN_DEFINITION_CHECK_H

#include <google/protobuf/descriptor.h>

#include <string>

namespace qor::kevra::codegen {

// Why the file is not taken; empty when it is.
std::string refusal(const google::protobuf::FileDescriptor& file);

}  // namespace qor::kevra::codegen

#endif  // QV_CODEGEN_DEFINITION_CHECK_H
