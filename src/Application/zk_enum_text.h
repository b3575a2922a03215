// Wire texts chosen by an enumeration value that a host passes in.
#pragma once

#include <cstddef>
#include <cstring>

// The text of `value` in a table indexed by the enumeration, or null for a value outside
// the table (a C host may pass any int where an enumeration is declared). The value is read
// as the int it was passed as, not as the enumeration, whose range it may lie outside.
template <typename E, size_t N>
const char* zk_enum_text(const char* const (&texts)[N], const E& value)
{
    static_assert(sizeof(E) == sizeof(int), "enumerations travel as int");
    int index = 0;
    std::memcpy(&index, &value, sizeof index);
    return index >= 0 && static_cast<size_t>(index) < N ? texts[index] : nullptr;
}
