// Names the members that a field adds to its generated class, and tells kinds of fields apart.
#ifndef QV_CODEGEN_FIELD_NAMES_H
#define QV_CODEGEN_FIELD_NAMES_H

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

namespace qor::kevra::codegen {

// Returns "DebugLevel" for "debug_level".
std::string camelCase(const std::string& name);

// Returns the names of all members that a field adds to its class: its accessors, the constant with
// its number, and the field object.
std::vector<std::string> memberNames(const google::protobuf::FieldDescriptor& field);

// Returns whether the field holds strings or bytes.
bool isText(const google::protobuf::FieldDescriptor& field);
bool isMessage(const google::protobuf::FieldDescriptor& field);

}  // namespace qor::kevra::codegen

#endif  // QV_CODEGEN_FIELD_NAMES_H
