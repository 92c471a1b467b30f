// What the generated class calls the members of a field, and what sort of field it is.
#ifndef QV_CODEGEN_FIELD_NAMES_H
#define QV_CODEGEN_FIELD_NAMES_H

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

namespace qor::kevra::codegen {

// "debug_level" -> "DebugLevel"
std::string camelCase(const std::string& name);

// All that a field adds to its class: accessors, the constant of its number, the object itself.
std::vector<std::string> memberNames(const google::protobuf::FieldDescriptor& field);

// Strings and bytes.
bool isText(const google::protobuf::FieldDescriptor& field);
bool isMessage(const google::protobuf::FieldDescriptor& field);

}  // namespace qor::kevra::codegen

#endif  // QV_CODEGEN_FIELD_NAMES_H
