// SPDX-License-Identifier: Apache-2.0

// The property-list layer keeps the memory of released objects for new ones. This header lets a
// test use that memory up.
#ifndef QV_TESTS_KEPT_OBJECTS_H
#define QV_TESTS_KEPT_OBJECTS_H

namespace qv::tests {

// Makes small objects of every size until each new object takes an allocation, and never releases
// them. Returns how many allocations the objects hold.
long useUpKeptObjects();

}  // namespace qv::tests

#endif  // QV_TESTS_KEPT_OBJECTS_H
