// The memory of objects: malloc()'s, of which what small objects leave behind is kept for the next
// ones.
//
// A tree is thousands of small objects, made together and ended together. That is what malloc() is
// slowest at, since it merges what it is given back and splits it again: without the kept blocks,
// making a tree takes half as long again, beside other threads still more. Blocks come from
// malloc() one by one, so each can go back there at any time, and all of them do when the library
// is unloaded.
#ifndef COREFOUNDATION_OBJECTMEMORY_H
#define COREFOUNDATION_OBJECTMEMORY_H

#include <cstddef>

namespace cf {

// Null where there is no memory. Any thread may allocate and free.
void* allocateObject(std::size_t size);

// Takes the size that was asked for.
void freeObject(void* memory, std::size_t size);

// For tests, which let each allocation fail and count those that are left: whether blocks are kept.
// Gives back those that are.
void keepFreedObjects(bool keep);

}  // namespace cf

#endif  // COREFOUNDATION_OBJECTMEMORY_H
