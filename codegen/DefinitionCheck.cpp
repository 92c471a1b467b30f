#include "DefinitionCheck.h"

#include <google/protobuf/descriptor.pb.h>

#include <set>
#include <vector>

#include "FieldNames.h"

namespace qor::kevra::codegen {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::EnumDescriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;
using google::protobuf::FileOptions;

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == separator) {
            parts.emplace_back();
        } else {
            parts.back().push_back(c);
        }
    }
    return parts;
}

// Names that no declaration may have, and the names of other namespaces that generated code uses.
bool isReserved(const std::string& name) {
    static const std::set<std::string> reserved{
        "alignas",      "alignof",      "and",      "and_eq",        "asm",
        "auto",         "bitand",       "bitor",    "bool",          "break",
        "case",         "catch",        "char",     "char16_t",      "char32_t",
        "class",        "compl",        "const",    "const_cast",    "constexpr",
        "continue",     "decltype",     "default",  "delete",        "do",
        "double",       "dynamic_cast", "else",     "enum",          "errno",
        "explicit",     "export",       "extern",   "false",         "float",
        "for",          "friend",       "goto",     "google",        "if",
        "inline",       "int",          "long",     "mutable",       "namespace",
        "new",          "noexcept",     "not",      "not_eq",        "nullptr",
        "operator",     "or",           "or_eq",    "private",       "protected",
        "public",       "qor",          "register", "return",        "short",
        "signed",       "sizeof",       "static",   "static_assert", "static_cast",
        "std",          "struct",       "switch",   "template",      "this",
        "thread_local", "throw",        "true",     "try",           "typedef",
        "typeid",       "typename",     "union",    "unsigned",      "using",
        "virtual",      "void",         "volatile", "wchar_t",       "while",
        "wire",         "xor",          "xor_eq"};
    return reserved.count(name) != 0;
}

// What the generator does not know; empty when it knows all of the file.
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
            const bool real = field.type() == FieldDescriptor::TYPE_FLOAT ||
                              field.type() == FieldDescriptor::TYPE_DOUBLE;
            if ((isText(field) || real) && field.has_default_value()) {
                return field.full_name() + ": a default is not supported for this type";
            }
        }
    }
    return {};
}

// Types, and the values of enums, which stand beside their type and not within it.
std::vector<std::string> topLevelNames(const FileDescriptor& file) {
    std::vector<std::string> names;
    for (int e = 0; e < file.enum_type_count(); ++e) {
        const EnumDescriptor& type = *file.enum_type(e);
        names.push_back(type.name());
        for (int v = 0; v < type.value_count(); ++v) {
            names.push_back(type.value(v)->name());
        }
    }
    for (int m = 0; m < file.message_type_count(); ++m) {
        names.push_back(file.message_type(m)->name());
    }
    return names;
}

// What the names of the file cannot be in C++; empty when all is well.
std::string badName(const FileDescriptor& file) {
    const std::vector<std::string> package = split(file.package(), '.');
    for (const std::string& part : package) {
        // Our own first part is the only place for that name.
        if (isReserved(part) && (&part != &package.front() || part != "qor")) {
            return file.package() + ": the package's name cannot be used in C++";
        }
    }
    std::set<std::string> names;
    for (const std::string& name : topLevelNames(file)) {
        // The base class of the generated ones is Message.
        if (isReserved(name) || name == "Message") {
            return file.package() + "." + name + ": the name cannot be used in C++";
        }
        names.insert(name);
    }
    for (int m = 0; m < file.message_type_count(); ++m) {
        const Descriptor& message = *file.message_type(m);
        // A member of a type's or a value's name would hide it from the members after it.
        std::set<std::string> members = names;
        members.insert({"fields", "self", "kTypeName"});
        for (int f = 0; f < message.field_count(); ++f) {
            const FieldDescriptor& field = *message.field(f);
            for (const std::string& member : memberNames(field)) {
                if (isReserved(member) || !members.insert(member).second) {
                    return field.full_name() + ": its member " + member +
                           " cannot be used in C++, or is used already";
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
