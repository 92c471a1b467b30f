// The values in an XML property list that are more than their text: numbers, dates and data. What
// they may look like stands at the top of XmlReader.cpp.
#ifndef COREFOUNDATION_XMLVALUES_H
#define COREFOUNDATION_XMLVALUES_H

#include <string_view>

#include "Object.h"
#include "String.h"

namespace cf {

// Each of these returns the value that the text between two tags stands for. It returns null with a
// reason if there is none, or if memory runs out.

const Object* readInteger(std::string_view bytes, const char** reason);
const Object* readDate(std::string_view bytes, const char** reason);
const Object* readData(std::string_view bytes, const char** reason);
const Object* readReal(const String& text, const char** reason);

}  // namespace cf

#endif  // COREFOUNDATION_XMLVALUES_H
