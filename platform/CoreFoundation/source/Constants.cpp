// SPDX-License-Identifier: Apache-2.0

// Defines the constant objects: the allocators, the null, true and false.
#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFNumber.h>

#include "Object.h"
#include "TypeBehavior.h"

namespace cf {

namespace {

Object g_systemAllocator(Type::Allocator, Object::kImmortal);
Object g_mallocAllocator(Type::Allocator, Object::kImmortal);
Object g_nullAllocator(Type::Allocator, Object::kImmortal);
Object g_null(Type::Null, Object::kImmortal);
Object g_true(Type::Boolean, Object::kImmortal);
Object g_false(Type::Boolean, Object::kImmortal);

}  // namespace

const TypeBehavior kNullBehavior = {nullptr, nullptr, nullptr};
const TypeBehavior kAllocatorBehavior = kNullBehavior;
const TypeBehavior kBooleanBehavior = kNullBehavior;

}  // namespace cf

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFAllocatorRef kCFAllocatorSystemDefault =
    reinterpret_cast<CFAllocatorRef>(&cf::g_systemAllocator);
const CFAllocatorRef kCFAllocatorMalloc = reinterpret_cast<CFAllocatorRef>(&cf::g_mallocAllocator);
const CFAllocatorRef kCFAllocatorNull = reinterpret_cast<CFAllocatorRef>(&cf::g_nullAllocator);
const CFNullRef kCFNull = reinterpret_cast<CFNullRef>(&cf::g_null);
const CFBooleanRef kCFBooleanTrue = reinterpret_cast<CFBooleanRef>(&cf::g_true);
const CFBooleanRef kCFBooleanFalse = reinterpret_cast<CFBooleanRef>(&cf::g_false);

CFTypeID CFAllocatorGetTypeID() {
    return cf::typeId(cf::Type::Allocator);
}

CFTypeID CFNullGetTypeID() {
    return cf::typeId(cf::Type::Null);
}

CFTypeID CFBooleanGetTypeID() {
    return cf::typeId(cf::Type::Boolean);
}

Boolean CFBooleanGetValue(CFBooleanRef boolean) {
    return boolean == kCFBooleanTrue ? TRUE : FALSE;
}
