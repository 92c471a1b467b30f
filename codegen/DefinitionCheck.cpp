#include "DefinitionCheck.h"

#include <google/protobuf/compiler/cpp/names.h>
#include <google/protobuf/descriptor.pb.h>

#include <set>

#include "FieldNames.h"

namespace qor::kevra::codegen {
namespace {

namespace cpp = google::protobuf::compiler::cpp;

using google::protobuf::Descriptor;
using google::protobuf::EnumDescriptor;
using google::protobuf::EnumValueDescriptor;
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

// Returns the first thing in the file that the generator does not support, or an empty string.
std::string unsupported(const FileDescriptor& file) {
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

// Returns the first name that generated code cannot use, or an empty string. libprotoc renames what
// is called like a keyword of C++. Rarer clashes, such as a type named std, show when the generated
// code is compiled.
std::string badName(const FileDescriptor& file) {
    const std::string unusable = ": the name cannot be used in C++";
    std::set<std::string> names;
    for (int e = 0; e < file.enum_type_count(); ++e) {
        const EnumDescriptor& type = *file.enum_type(e);
        if (cpp::ClassName(&type) != type.name()) {
            return type.full_name() + unusable;
        }
        names.insert(type.name());
        for (int v = 0; v < type.value_count(); ++v) {
            const EnumValueDescriptor& value = *type.value(v);
            if (cpp::EnumValueName(&value) != value.name()) {
                return value.full_name() + unusable;
            }
            names.insert(value.name());
        }
    }
    for (int m = 0; m < file.message_type_count(); ++m) {
        const Descriptor& message = *file.message_type(m);
        // The base class of every message is called Message.
        if (cpp::ClassName(&message) != message.name() || message.name() == "Message") {
            return message.full_name() + unusable;
        }
        names.insert(message.name());
    }
    for (int m = 0; m < file.message_type_count(); ++m) {
        const Descriptor& message = *file.message_type(m);
        // A member with the name of a type or a value would hide that name in the class.
        std::set<std::string> members = names;
        members.insert({"fields", "self", "kTypeName"});
        for (int f = 0; f < message.field_count(); ++f) {
            const FieldDescriptor& field = *message.field(f);
            if (cpp::FieldName(&field) != field.lowercase_name()) {
                return field.full_name() + unusable;
            }
            for (const std::string& member : memberNames(field)) {
                if (!members.insert(member).second) {
                    return field.full_name() + ": its member " + member + " is used already";
                }
            }
        }
    }
    return {};
}

}  // namespace

std::string refusal(const FileDescriptor& file) {
    const std::string reason = unsupported(file);
    return reason.empty() ? badName(file) : reason;
}

}  // namespace qor::kevra::codegen
