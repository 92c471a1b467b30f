// SPDX-License-Identifier: Apache-2.0

// Generates the message classes of one definition file, <name>.pb.h and <name>.pb.cc.
//
// A generated class has the fields of its message, and accessors that call the fields. Each field
// is an object of a kind from runtime/Fields.h. The operations that all messages share are in
// runtime/Message.h. So this generator handles names, numbers, labels, types and defaults, but not
// the wire format.
//
// DefinitionCheck.h refuses the files that it does not support.
#ifndef QV_CODEGEN_MESSAGE_GENERATOR_H
#define QV_CODEGEN_MESSAGE_GENERATOR_H

#include <google/protobuf/compiler/code_generator.h>

#include <string>

namespace qor::kevra::codegen {

class MessageGenerator : public google::protobuf::compiler::CodeGenerator {
  public:
    bool Generate(const google::protobuf::FileDescriptor* file, const std::string& parameter,
                  google::protobuf::compiler::GeneratorContext* context,
                  std::string* error) const override;
};

}  // namespace qor::kevra::codegen

#endif  // QV_CODEGEN_MESSAGE_GENERATOR_H
