// The type of arrays, as a constant of this library. Who includes this links qv_corefoundation.
#ifndef QV_CF_ARRAY_TYPE_INFO_H
#define QV_CF_ARRAY_TYPE_INFO_H

#include <CoreFoundation/CoreFoundation.h>

#include "QvUtil.h"

namespace qor::kevra {

class CFArrayTypeInfo {
  public:
    // CFArrayGetTypeID(), from the moment the library is loaded.
    QV_UTIL_EXPORT static const CFTypeID CF_TYPE_ID;
};

}  // namespace qor::kevra

#endif  // QV_CF_ARRAY_TYPE_INFO_H
