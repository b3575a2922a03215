// Heap-freedom checks shared by the algorithm tests. A program replaces operator new (and,
// on glibc without a sanitizer, malloc) once: the counting hooks live in
// math_noalloc_test.cpp, and other tests of the same program reach them through this.
#pragma once

// Number of allocations made while f runs: operator new in every build, the malloc
// family where the C library lets the program count it.
long zk_test_allocations_during(void (*f)());
