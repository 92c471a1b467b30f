// SPDX-License-Identifier: Apache-2.0

// Reads the values of an XML property list whose text has a format: numbers, dates and data.
// XmlReader.cpp states the formats at its top.
#ifndef COREFOUNDATION_XMLVALUES_H
#define COREFOUNDATION_XMLVALUES_H

#include <string_view>

#include "Object.h"
#include "String.h"

namespace cf {

// Each function returns the value of the text between two tags. It returns null with a reason if
// the text is not in the format, or if memory runs out.

const Object* readInteger(std::string_view bytes, const char** reason);
const Object* readDate(std::string_view bytes, const char** reason);
const Object* readData(std::string_view bytes, const char** reason);
const Object* readReal(const String& text, const char** reason);

}  // namespace cf

#endif  // COREFOUNDATION_XMLVALUES_H
