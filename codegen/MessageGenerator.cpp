// SPDX-License-Identifier: Apache-2.0

#include "MessageGenerator.h"

#include <google/protobuf/compiler/cpp/names.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/printer.h>
#include <google/protobuf/io/zero_copy_stream.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <memory>
#include <vector>

#include "DefinitionCheck.h"

namespace qor::kevra::codegen {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::EnumDescriptor;
using google::protobuf::EnumValueDescriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;
using google::protobuf::compiler::cpp::StripProto;
using google::protobuf::io::Printer;

using Variables = std::map<std::string, std::string>;

constexpr char kWire[] = "::qor::kevra::wire::";

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// Returns "DIR_MY_FILE" for "dir/my-file".
std::string identifierOf(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) {
        return std::isalnum(c) != 0 ? static_cast<char>(std::toupper(c)) : '_';
    });
    return text;
}

// Returns "qor::kevra" for "qor.kevra".
std::string cppScope(const std::string& dotted) {
    return replaceAll(dotted, ".", "::");
}

// Returns "DebugLevel" for "debug_level".
std::string camelCaseOf(const FieldDescriptor& field) {
    std::string name = field.camelcase_name();
    name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
    return name;
}

bool isText(const FieldDescriptor& field) {
    return field.type() == FieldDescriptor::TYPE_STRING;
}

bool isMessage(const FieldDescriptor& field) {
    return field.type() == FieldDescriptor::TYPE_MESSAGE;
}

std::string codecOf(const FieldDescriptor& field) {
    switch (field.type()) {
        case FieldDescriptor::TYPE_INT32:
            return "Int32";
        case FieldDescriptor::TYPE_INT64:
            return "Int64";
        case FieldDescriptor::TYPE_UINT32:
            return "UInt32";
        case FieldDescriptor::TYPE_UINT64:
            return "UInt64";
        case FieldDescriptor::TYPE_BOOL:
            return "Bool";
        case FieldDescriptor::TYPE_ENUM:
            return "Enum<" + field.enum_type()->name() + ">";
        default:
            return {};
    }
}

// Returns the type of a singular field's value, or of a repeated field's element.
std::string valueTypeOf(const FieldDescriptor& field) {
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32:
            return "std::int32_t";
        case FieldDescriptor::CPPTYPE_INT64:
            return "std::int64_t";
        case FieldDescriptor::CPPTYPE_UINT32:
            return "std::uint32_t";
        case FieldDescriptor::CPPTYPE_UINT64:
            return "std::uint64_t";
        case FieldDescriptor::CPPTYPE_BOOL:
            return "bool";
        case FieldDescriptor::CPPTYPE_ENUM:
            return field.enum_type()->name();
        case FieldDescriptor::CPPTYPE_STRING:
            return "std::string";
        default:
            return field.message_type()->name();
    }
}

// Returns the field's declaration as in its definition file, without the default.
std::string declarationOf(const FieldDescriptor& field) {
    const std::string text = field.DebugString();
    return text.substr(0, text.find(" [")) + ";";
}

std::string defaultOf(const FieldDescriptor& field) {
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32:
            return std::to_string(field.default_value_int32());
        case FieldDescriptor::CPPTYPE_BOOL:
            return field.default_value_bool() ? "true" : "false";
        case FieldDescriptor::CPPTYPE_ENUM:
            return std::to_string(field.default_value_enum()->number());
        default:
            return "0";
    }
}

// Returns the type of a repeated field's list.
std::string listTypeOf(const FieldDescriptor& field) {
    const std::string list =
        isText(field) || isMessage(field) ? "RepeatedPtrField" : "RepeatedField";
    return kWire + list + "<" + valueTypeOf(field) + ">";
}

// Returns the field's kind, which is a type of runtime/Fields.h.
std::string kindOf(const FieldDescriptor& field) {
    const std::string number = std::to_string(field.number());
    const std::string label =
        std::string(kWire) + (field.is_required() ? "Label::kRequired" : "Label::kOptional");
    if (isMessage(field)) {
        const std::string type = field.message_type()->name();
        return field.is_repeated()
                   ? kWire + ("RepeatedMessageField<" + number + ", " + type + ">")
                   : kWire + ("MessageField<" + number + ", " + type + ", " + label + ">");
    }
    if (isText(field)) {
        return field.is_repeated() ? kWire + ("RepeatedStringField<" + number + ">")
                                   : kWire + ("StringField<" + number + ", " + label + ">");
    }
    const std::string codec = kWire + codecOf(field);
    return field.is_repeated() ? kWire + ("RepeatedScalarField<" + number + ", " + codec + ">")
                               : kWire + ("ScalarField<" + number + ", " + codec + ", " + label +
                                          ", " + defaultOf(field) + ">");
}

void printEnum(Printer* out, const EnumDescriptor& type) {
    std::vector<int> numbers;
    out->Print("enum $name$ : int {\n", "name", type.name());
    for (int v = 0; v < type.value_count(); ++v) {
        const EnumValueDescriptor& value = *type.value(v);
        numbers.push_back(value.number());
        out->Print("    $name$ = $number$,\n", "name", value.name(), "number",
                   std::to_string(value.number()));
    }
    std::sort(numbers.begin(), numbers.end());
    out->Print(
        "};\n"
        "constexpr $name$ $name$_MIN = static_cast<$name$>($min$);\n"
        "constexpr $name$ $name$_MAX = static_cast<$name$>($max$);\n",
        "name", type.name(), "min", std::to_string(numbers.front()), "max",
        std::to_string(numbers.back()));
    out->Print("constexpr int $name$_ARRAYSIZE = $max$ + 1;\n", "name", type.name(), "max",
               std::to_string(numbers.back()));
    out->Print(
        "// Returns whether the enum names this number.\n"
        "constexpr bool $name$_IsValid(int value) {\n"
        "    switch (value) {\n",
        "name", type.name());
    for (const int number : numbers) {
        out->Print("        case $number$:\n", "number", std::to_string(number));
    }
    out->Print(
        "            return true;\n"
        "        default:\n"
        "            return false;\n"
        "    }\n"
        "}\n\n");
}

void printEnumTraits(Printer* out, const EnumDescriptor& type) {
    const std::string scope = cppScope(type.file()->package());
    out->Print(
        "template <>\n"
        "struct qor::kevra::wire::EnumTraits<$scope$::$name$> {\n"
        "    static constexpr bool isValid(int value) { return $scope$::$name$_IsValid(value); }\n"
        "    static constexpr char kCheck[] = \"$scope$::$name$_IsValid(value)\";\n"
        "};\n\n",
        "scope", scope, "name", type.name());
}

// Prints setters that take a string, a NUL-terminated array, and an array with its size. `set` is
// the setter's name, its bracket, and its index if it has one. `target` is the string that it
// assigns to.
void printTextSetters(Printer* out, const std::string& set, const std::string& target) {
    out->Print(
        "    void $set$const std::string& value) { $target$->assign(value); }\n"
        "    void $set$std::string&& value) { $target$->assign(std::move(value)); }\n"
        "    void $set$const char* value) { $target$->assign(value); }\n"
        "    void $set$const void* value, std::size_t size) {\n"
        "        $target$->assign(static_cast<const char*>(value), size);\n"
        "    }\n",
        "set", set, "target", target);
}

void printSingularAccessors(Printer* out, const FieldDescriptor& field,
                            const Variables& variables) {
    out->Print(variables,
               "    bool has_$name$() const { return $name$_.has(); }\n"
               "    void clear_$name$() { $name$_.clear(); }\n");
    if (!isText(field) && !isMessage(field)) {
        out->Print(variables,
                   "    $type$ $name$() const { return $name$_.get(); }\n"
                   "    void set_$name$($type$ value) { $name$_.set(value); }\n");
        return;
    }
    out->Print(variables,
               "    const $type$& $name$() const { return $name$_.get(); }\n"
               "    $type$* mutable_$name$() { return $name$_.mutableValue(); }\n");
    if (isText(field)) {
        const std::string& name = variables.at("name");
        printTextSetters(out, "set_" + name + "(", name + "_.mutableValue()");
    }
}

void printRepeatedAccessors(Printer* out, const FieldDescriptor& field,
                            const Variables& variables) {
    out->Print(variables,
               "    int $name$_size() const { return $name$_.size(); }\n"
               "    void clear_$name$() { $name$_.clear(); }\n"
               "    const $list$& $name$() const { return $name$_.list(); }\n"
               "    $list$* mutable_$name$() { return $name$_.mutableList(); }\n");
    if (!isText(field) && !isMessage(field)) {
        out->Print(variables,
                   "    $type$ $name$(int index) const { return $name$_.get(index); }\n"
                   "    void set_$name$(int index, $type$ value) { $name$_.set(index, value); }\n"
                   "    void add_$name$($type$ value) { $name$_.add(value); }\n");
        return;
    }
    out->Print(variables,
               "    const $type$& $name$(int index) const { return $name$_.get(index); }\n"
               "    $type$* mutable_$name$(int index) { return $name$_.mutableElement(index); }\n"
               "    $type$* add_$name$() { return $name$_.add(); }\n");
    if (isText(field)) {
        const std::string& name = variables.at("name");
        printTextSetters(out, "add_" + name + "(", name + "_.add()");
        printTextSetters(out, "set_" + name + "(int index, ", name + "_.mutableElement(index)");
    }
}

void printAccessors(Printer* out, const FieldDescriptor& field) {
    const Variables variables{{"name", field.lowercase_name()},
                              {"Name", camelCaseOf(field)},
                              {"number", std::to_string(field.number())},
                              {"type", valueTypeOf(field)},
                              {"list", field.is_repeated() ? listTypeOf(field) : ""},
                              {"declaration", declarationOf(field)}};
    out->Print(variables,
               "\n"
               "    // $declaration$\n"
               "    static constexpr int k$Name$FieldNumber = $number$;\n");
    if (!field.is_repeated()) {
        printSingularAccessors(out, field, variables);
    } else {
        printRepeatedAccessors(out, field, variables);
    }
}

void printMessage(Printer* out, const Descriptor& message) {
    std::vector<const FieldDescriptor*> fields;
    fields.reserve(static_cast<std::size_t>(message.field_count()));
    for (int f = 0; f < message.field_count(); ++f) {
        fields.push_back(message.field(f));
    }

    std::string constructed;
    for (const FieldDescriptor* field : fields) {
        constructed += ", " + field->lowercase_name() + "_(arena)";
    }
    // The class declares its fields in the definition's order, and writes them in ascending order
    // of their numbers.
    std::vector<const FieldDescriptor*> ascending = fields;
    std::sort(ascending.begin(), ascending.end(),
              [](const auto* a, const auto* b) { return a->number() < b->number(); });
    std::string tied;
    for (const FieldDescriptor* field : ascending) {
        tied += (tied.empty() ? "" : ", ") + field->lowercase_name() + "_";
    }

    const Variables variables{{"name", message.name()},
                              {"full_name", message.full_name()},
                              {"wire", kWire},
                              {"constructed", constructed},
                              {"fields", tied}};
    out->Print(
        variables,
        "class $name$ final : public $wire$Message<$name$> {\n"
        "  public:\n"
        "    static constexpr char kTypeName[] = \"$full_name$\";\n"
        "\n"
        "    $name$() : $name$(nullptr) {}\n"
        "    explicit $name$($wire$Arena* arena) : Message(arena)$constructed$ {}\n"
        "    $name$(const $name$& from) : $name$() { MergeFrom(from); }\n"
        "    $name$($name$&& from) noexcept : $name$() { Swap(&from); }\n"
        "    $name$& operator=(const $name$& from) {\n"
        "        CopyFrom(from);\n"
        "        return *this;\n"
        "    }\n"
        "    $name$& operator=($name$&& from) noexcept {\n"
        "        Swap(&from);\n"
        "        return *this;\n"
        "    }\n"
        "    ~$name$() final = default;\n"
        "\n"
        "    $name$* New() const { return New(nullptr); }\n"
        "    $name$* New($wire$Arena* arena) const final;\n"
        "    // The runtime's lists look for this function in the class itself, not in its base.\n"
        "    void MergeFrom(const $name$& from) { Message::MergeFrom(from); }\n");
    for (const FieldDescriptor* field : fields) {
        printAccessors(out, *field);
    }
    out->Print(variables,
               "\n"
               "  private:\n"
               "    friend class $wire$Message<$name$>;\n"
               "\n"
               "    // Return the fields in ascending order of their numbers.\n"
               "    auto fields() { return std::tie($fields$); }\n"
               "    auto fields() const { return std::tie($fields$); }\n"
               "\n");
    for (const FieldDescriptor* field : fields) {
        out->Print("    $kind$ $name$_;\n", "kind", kindOf(*field), "name",
                   field->lowercase_name());
    }
    out->Print("};\n\n");
}

void printHeader(Printer* out, const FileDescriptor& file) {
    const Variables variables{
        {"file", file.name()},
        {"guard", "QV_GENERATED_" + identifierOf(StripProto(file.name())) + "_PB_H"},
        {"scope", cppScope(file.package())}};
    out->Print(variables,
               "// protoc-gen-kevra generates this file from $file$. Do not edit it.\n"
               "#ifndef $guard$\n"
               "#define $guard$\n"
               "\n"
               "#include <cstdint>\n"
               "#include <string>\n"
               "#include <tuple>\n"
               "#include <utility>\n"
               "\n"
               "#include <runtime/Message.h>\n"
               "\n"
               "namespace $scope$ {\n"
               "\n");
    for (int m = 0; m < file.message_type_count(); ++m) {
        out->Print("class $name$;\n", "name", file.message_type(m)->name());
    }
    out->Print("\n");
    for (int e = 0; e < file.enum_type_count(); ++e) {
        printEnum(out, *file.enum_type(e));
    }
    out->Print(variables, "}  // namespace $scope$\n\n");
    for (int e = 0; e < file.enum_type_count(); ++e) {
        printEnumTraits(out, *file.enum_type(e));
    }
    out->Print(variables, "namespace $scope$ {\n\n");
    for (int m = 0; m < file.message_type_count(); ++m) {
        printMessage(out, *file.message_type(m));
    }
    out->Print(variables, "}  // namespace $scope$\n\n");
    for (int m = 0; m < file.message_type_count(); ++m) {
        out->Print("extern template class qor::kevra::wire::Message<$name$>;\n", "name",
                   cppScope(file.message_type(m)->full_name()));
    }
    out->Print(variables,
               "\n"
               "#endif  // $guard$\n");
}

void printSource(Printer* out, const FileDescriptor& file) {
    out->Print(
        "// protoc-gen-kevra generates this file from $file$. Do not edit it.\n"
        "#include \"$base$.pb.h\"\n"
        "\n"
        "// These instantiate all functions of the base classes.\n",
        "file", file.name(), "base", StripProto(file.name()));
    for (int m = 0; m < file.message_type_count(); ++m) {
        out->Print("template class qor::kevra::wire::Message<$name$>;\n", "name",
                   cppScope(file.message_type(m)->full_name()));
    }
    out->Print("\nnamespace $scope$ {\n\n", "scope", cppScope(file.package()));
    for (int m = 0; m < file.message_type_count(); ++m) {
        out->Print(
            "$name$* $name$::New($wire$Arena* arena) const {\n"
            "    return $wire$Arena::CreateMessage<$name$>(arena);\n"
            "}\n",
            "name", file.message_type(m)->name(), "wire", kWire);
    }
    out->Print("\n}  // namespace $scope$\n", "scope", cppScope(file.package()));
}

}  // namespace

bool MessageGenerator::Generate(const FileDescriptor* file, const std::string& /*parameter*/,
                                google::protobuf::compiler::GeneratorContext* context,
                                std::string* error) const {
    *error = refusal(*file);
    if (!error->empty()) {
        return false;
    }
    const auto write = [&](const std::string& suffix, auto print) {
        const std::unique_ptr<google::protobuf::io::ZeroCopyOutputStream> stream(
            context->Open(StripProto(file->name()) + suffix));
        Printer out(stream.get(), '$');
        print(&out, *file);
    };
    write(".pb.h", printHeader);
    write(".pb.cc", printSource);
    return true;
}

}  // namespace qor::kevra::codegen
