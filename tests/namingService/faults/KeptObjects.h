// The memory that the property-list layer keeps of objects that have ended, for the next ones.
#ifndef QV_TESTS_KEPT_OBJECTS_H
#define QV_TESTS_KEPT_OBJECTS_H

namespace qv::tests {

// Makes small objects of every size, and never lets go of them, until each costs an allocation: so
// does each that anybody makes afterwards. Returns how many allocations the objects hold.
long useUpKeptObjects();

}  // namespace qv::tests

#endif  // QV_TESTS_KEPT_OBJECTS_H
