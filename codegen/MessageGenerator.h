// Makes the message classes of one definition file: <name>.pb.h and <name>.pb.cc.
//
// A generated class holds only what differs from message to message: its fields, each an object of
// a kind from runtime/Fields.h, and the accessors that hand through to them. What all messages do
// alike is in runtime/Message.h. So this generator knows names, numbers, labels, types and
// defaults, and nothing of the wire.
//
// Which files it takes is DefinitionCheck.h's to say.
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
