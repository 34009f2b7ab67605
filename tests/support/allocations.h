// Replaces operator new and delete of a test program; include it in one source.
#pragma once

#include <cstdlib>
#include <new>

/// Called before each allocation: may count it, or throw. The program defines it.
void before_allocation();

// Not inlined: the compiler would see free called on what new returned.
[[gnu::noinline]] void* operator new(std::size_t size) {
    before_allocation();
    if (void* const memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
