// SPDX-License-Identifier: Apache-2.0

// Allocates the memory of objects with malloc(), and keeps the blocks of small objects that were
// destroyed for the next ones.
//
// A tree is thousands of small objects that are created together and destroyed together. malloc()
// is slow at that, since it merges the blocks that it gets back and splits them again. Without the
// kept blocks, building a tree takes half as long again, and even longer beside other threads. Each
// block comes from malloc(), so each can be freed at any time; all kept blocks are freed when the
// library is unloaded.
#ifndef COREFOUNDATION_OBJECTMEMORY_H
#define COREFOUNDATION_OBJECTMEMORY_H

#include <cstddef>

// Frees the kept blocks. A program calls this before it gives free memory back to the system: a
// kept block lies between pieces of freed trees, whose pages could not be given back. Does nothing
// while another thread allocates or frees an object. The interface has no such function, so
// programs use QvCFMemory.h.
extern "C" __attribute__((visibility("default"))) void QvCFFreeKeptObjects();

namespace cf {

// Allocates memory for an object. Returns null if memory runs out. Any thread may call this
// function and freeObject().
void* allocateObject(std::size_t size);

// Frees the memory of an object, or keeps it. `size` is the size that was allocated.
void freeObject(void* memory, std::size_t size);

// Frees all kept blocks, and sets whether blocks are kept from now on. Tests let each allocation
// fail and count the remaining blocks, so they keep none.
void keepFreedObjects(bool keep);

}  // namespace cf

#endif  // COREFOUNDATION_OBJECTMEMORY_H
