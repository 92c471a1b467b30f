// SPDX-License-Identifier: Apache-2.0

#include "DefinitionCheck.h"

#include <google/protobuf/descriptor.pb.h>

namespace qor::kevra::codegen {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;
using google::protobuf::FileOptions;

// Returns whether the messages have fields like this one. Lists are written unpacked, and only
// int32, bool and enums have defaults.
bool isSupported(const FieldDescriptor& field) {
    switch (field.type()) {
        case FieldDescriptor::TYPE_INT32:
        case FieldDescriptor::TYPE_BOOL:
            return !field.is_packed();
        case FieldDescriptor::TYPE_INT64:
        case FieldDescriptor::TYPE_UINT32:
        case FieldDescriptor::TYPE_UINT64:
            return !field.is_packed() && !field.has_default_value();
        case FieldDescriptor::TYPE_ENUM:
            return !field.is_repeated();
        case FieldDescriptor::TYPE_STRING:
            return !field.has_default_value();
        default:
            return field.type() == FieldDescriptor::TYPE_MESSAGE;
    }
}

}  // namespace

std::string refusal(const FileDescriptor& file) {
    if (file.syntax() != FileDescriptor::SYNTAX_PROTO2) {
        return "only proto2 is supported";
    }
    if (file.package().empty()) {
        return "a package is required";
    }
    if (file.options().optimize_for() != FileOptions::LITE_RUNTIME) {
        return "option optimize_for = LITE_RUNTIME is missing";
    }
    if (file.dependency_count() != 0) {
        return "imports are not supported";
    }
    if (file.extension_count() != 0 || file.service_count() != 0) {
        return "extensions and services are not supported";
    }
    for (int m = 0; m < file.message_type_count(); ++m) {
        const Descriptor& message = *file.message_type(m);
        if (message.nested_type_count() != 0 || message.enum_type_count() != 0) {
            return message.full_name() + ": types within a message are not supported";
        }
        if (message.extension_count() != 0 || message.extension_range_count() != 0 ||
            message.oneof_decl_count() != 0) {
            return message.full_name() + ": extensions and oneofs are not supported";
        }
        for (int f = 0; f < message.field_count(); ++f) {
            const FieldDescriptor& field = *message.field(f);
            if (!isSupported(field)) {
                return field.full_name() + ": this type, label or default is not supported";
            }
        }
    }
    return {};
}

}  // namespace qor::kevra::codegen
