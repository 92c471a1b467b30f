// SPDX-License-Identifier: Apache-2.0

#include "CFArrayTypeInfo.h"

const CFTypeID qor::kevra::CFArrayTypeInfo::CF_TYPE_ID = CFArrayGetTypeID();
