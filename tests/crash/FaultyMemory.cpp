#include "tests/crash/FaultyMemory.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

// Plain data: it is used before and after everything else of the program.
unsigned long failAt = 0;  // 0 for never
unsigned long allocations = 0;
bool failsFromThenOn = false;
bool struck = false;
std::atomic<long> alive = 0;

void* allocate(std::size_t size) {
    if (failAt != 0) {
        ++allocations;
        if (allocations == failAt || (failsFromThenOn && allocations > failAt)) {
            struck = true;
            return nullptr;
        }
    }
    void* memory = std::malloc(size != 0 ? size : 1);
    alive += memory != nullptr ? 1 : 0;
    return memory;
}

void release(void* memory) {
    alive -= memory != nullptr ? 1 : 0;
    std::free(memory);
}

void* allocateOrThrow(std::size_t size) {
    void* memory = allocate(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

}  // namespace

// Of the whole program, with the libraries that it loads.
void* operator new(std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    release(memory);
}
void operator delete[](void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    release(memory);
}

namespace Kes::testing {

void FaultyMemory::set(unsigned long at, bool goesOn) {
    failAt = at;
    failsFromThenOn = goesOn;
    allocations = 0;
    struck = false;
}

void FaultyMemory::clear() {
    failAt = 0;
}

bool FaultyMemory::hasStruck() {
    return struck;
}

long FaultyMemory::live() {
    return alive;
}

}  // namespace Kes::testing
