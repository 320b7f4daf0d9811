// The forms in which values go to the server and come from it.

#pragma once

#include <cstddef>
#include <cstdint>

namespace Kes::sql {

// The server's numbers for its types.
enum PostgresType : unsigned {
    TypeUnknown = 0,
    TypeBool = 16,
    TypeBytes = 17,
    TypeName = 19,
    TypeInt8 = 20,
    TypeInt2 = 21,
    TypeInt4 = 23,
    TypeText = 25,
    TypeOid = 26,
    TypeFloat4 = 700,
    TypeFloat8 = 701,
    TypeBpchar = 1042,
    TypeInt8Array = 1016,
    TypeVarchar = 1043
};

// Of a list, before its elements: five numbers of the protocol.
inline constexpr std::size_t ListHeader = 20;  // bytes

inline std::uint64_t readBits(const char* at, int size) {
    std::uint64_t bits = 0;
    for (int i = 0; i < size; ++i)
        bits = bits << 8 | static_cast<unsigned char>(at[i]);
    return bits;
}

}  // namespace Kes::sql
