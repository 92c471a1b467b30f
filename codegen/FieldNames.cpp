#include "FieldNames.h"

#include <cctype>

namespace qor::kevra::codegen {

using google::protobuf::FieldDescriptor;

std::string camelCase(const std::string& name) {
    std::string result;
    bool wordStarts = true;
    for (const char c : name) {
        if (c == '_') {
            wordStarts = true;
            continue;
        }
        result.push_back(wordStarts ? static_cast<char>(std::toupper(static_cast<unsigned char>(c)))
                                    : c);
        wordStarts = false;
    }
    return result;
}

std::vector<std::string> memberNames(const FieldDescriptor& field) {
    const std::string& name = field.lowercase_name();
    std::vector<std::string> names{name, name + "_", "clear_" + name,
                                   "k" + camelCase(field.name()) + "FieldNumber"};
    if (field.is_repeated()) {
        names.insert(names.end(),
                     {name + "_size", "add_" + name, "mutable_" + name, "set_" + name});
    } else {
        names.insert(names.end(), {"has_" + name, "mutable_" + name, "set_" + name});
    }
    return names;
}

bool isText(const FieldDescriptor& field) {
    return field.cpp_type() == FieldDescriptor::CPPTYPE_STRING;
}

bool isMessage(const FieldDescriptor& field) {
    return field.cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE;
}

}  // namespace qor::kevra::codegen
