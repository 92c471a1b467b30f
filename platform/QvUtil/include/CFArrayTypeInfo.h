// SPDX-License-Identifier: Apache-2.0

// The type id of arrays, as a constant of this library. A target that includes this header links
// qv_corefoundation.
#ifndef QV_CF_ARRAY_TYPE_INFO_H
#define QV_CF_ARRAY_TYPE_INFO_H

#include <CoreFoundation/CoreFoundation.h>

#include "QvUtil.h"

namespace qor::kevra {

class CFArrayTypeInfo {
  public:
    // CFArrayGetTypeID(). Set when the library is loaded.
    QV_UTIL_EXPORT static const CFTypeID CF_TYPE_ID;
};

}  // namespace qor::kevra

#endif  // QV_CF_ARRAY_TYPE_INFO_H
