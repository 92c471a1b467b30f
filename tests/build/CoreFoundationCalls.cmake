# SPDX-License-Identifier: Apache-2.0

# Checks that a built file uses only symbols that every CoreFoundation has: its public interface.

cmake_minimum_required(VERSION 3.25)

set(public
  CFRetain CFRelease CFGetRetainCount CFGetTypeID CFEqual CFHash CFCopyDescription CFShow
  CFStringCreateWithCString CFStringCreateWithBytes CFStringCreateWithCharacters CFStringGetLength
  CFStringGetCharacterAtIndex CFStringGetCharacters CFStringGetCStringPtr CFStringGetCString
  CFStringCompare CFStringGetTypeID
  CFNumberCreate CFNumberGetValue CFNumberGetType CFNumberIsFloatType CFNumberGetTypeID
  CFBooleanGetValue CFBooleanGetTypeID
  CFDataCreate CFDataCreateWithBytesNoCopy CFDataGetBytePtr CFDataGetLength CFDataGetTypeID
  CFDateCreate CFDateGetAbsoluteTime CFDateGetTypeID
  CFArrayCreate CFArrayCreateMutable CFArrayAppendValue CFArrayGetCount CFArrayGetValueAtIndex
  CFArrayGetTypeID
  CFDictionaryCreate CFDictionaryCreateMutable CFDictionaryAddValue CFDictionarySetValue
  CFDictionaryRemoveValue CFDictionaryRemoveAllValues CFDictionaryGetCount CFDictionaryGetValue
  CFDictionaryGetValueIfPresent CFDictionaryContainsKey CFDictionaryGetKeysAndValues
  CFDictionaryApplyFunction CFDictionaryGetTypeID
  CFPropertyListCreateFromXMLData CFPropertyListCreateWithData CFPropertyListIsValid
  CFPropertyListCreateXMLData CFPropertyListCreateData
  kCFAllocatorDefault kCFAllocatorSystemDefault kCFAllocatorMalloc kCFAllocatorNull
  kCFBooleanTrue kCFBooleanFalse
  kCFTypeArrayCallBacks kCFTypeDictionaryKeyCallBacks kCFTypeDictionaryValueCallBacks
  # The symbols that the macro CFSTR uses.
  __CFStringMakeConstantString __CFConstantStringClassReference)

execute_process(COMMAND "${NM}" -u "${FILE}" OUTPUT_VARIABLE output RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "nm cannot read ${FILE}")
endif()

set(count 0)
# A line ends with the symbol. The loop removes the underscore that some systems put before C names.
string(REGEX MATCHALL "[A-Za-z0-9_$.]+\n" symbols "${output}")
foreach(symbol IN LISTS symbols)
  string(STRIP "${symbol}" symbol)
  if(UNDERSCORE)
    string(REGEX REPLACE "^_" "" symbol "${symbol}")
  endif()
  if(symbol MATCHES "^_*k?CF[A-Z]")
    math(EXPR count "${count} + 1")
    if(NOT symbol IN_LIST public)
      message(SEND_ERROR "${FILE} uses ${symbol}, which not every CoreFoundation has")
    endif()
  endif()
endforeach()
if(count EQUAL 0)
  message(FATAL_ERROR "${FILE} uses no symbol of CoreFoundation, so it may be the wrong file")
endif()
message(STATUS "${count} symbols")
