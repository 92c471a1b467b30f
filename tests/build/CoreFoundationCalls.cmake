# What a built file takes from CoreFoundation is in every CoreFoundation: its public interface as it has
# been from the start.

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
  # What the CFSTR macro stands for.
  __CFStringMakeConstantString __CFConstantStringClassReference)

execute_process(COMMAND "${NM}" -u "${FILE}" OUTPUT_VARIABLE output RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "nm cannot read ${FILE}")
endif()

set(count 0)
# The symbol ends the line. Where C names have an underscore in front, it is taken off.
string(REGEX MATCHALL "[A-Za-z0-9_$.]+\n" symbols "${output}")
foreach(symbol IN LISTS symbols)
  string(STRIP "${symbol}" symbol)
  if(UNDERSCORE)
    string(REGEX REPLACE "^_" "" symbol "${symbol}")
  endif()
  if(symbol MATCHES "^_*k?CF[A-Z]")
    math(EXPR count "${count} + 1")
    if(NOT symbol IN_LIST public)
      message(SEND_ERROR "${FILE} takes ${symbol}, which not every CoreFoundation has")
    endif()
  endif()
endforeach()
if(count EQUAL 0)
  message(FATAL_ERROR "${FILE} takes nothing from CoreFoundation: is this the file meant?")
endif()
message(STATUS "${count} symbols")
