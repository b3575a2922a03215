// Counting of heap allocations for the heap-freedom tests. math_noalloc_test.cpp replaces
// the global allocation functions (operator new in every form, and the malloc family on
// glibc without a sanitizer) for the whole test program.
#pragma once

namespace algo_test {

// Runs f with counting on and returns the number of allocations it made.
long count_allocations(void (*f)());

}  // namespace algo_test
