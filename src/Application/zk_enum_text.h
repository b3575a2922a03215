// Wire texts chosen by an enumeration value that a host passes in.
#pragma once

#include <cstddef>

// The text of `value` in a table indexed by the enumeration, or null for a value outside
// the table: a C host may pass any int where an enumeration is declared.
template <typename E, size_t N>
const char* zk_enum_text(const char* const (&texts)[N], E value)
{
    const int index = static_cast<int>(value);
    return index >= 0 && static_cast<size_t>(index) < N ? texts[index] : nullptr;
}
