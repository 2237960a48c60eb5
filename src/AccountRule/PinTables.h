#pragma once

// The three constant tables of the dial-name generators, fixed by the access servers.
// Each is a read-only array of single-byte characters indexed from 0; the literal's trailing
// NUL is not part of the table (hence the sizes checked below are one more than the count).
namespace PinTables {

// 62 letters and digits; fills the key block of the V1 check byte.
inline constexpr char keyPadding[] = "fLnQNgc0Eg2EZ2ZwL8ShpUhhtWDqPDwFabqitVHsREXjBFIjujEO88kv7xh6QY";
// 64 characters (62 letters and digits, ":" and "_") for the MAC-bound PIN encoder.
inline constexpr char alphabetA[] = "MQpYkRVoHNTZf6uFei4IUtg5c7KDvwazErL1bPq9mnjl20dWXyBJOGhA8sSCx3:_";
// 64 characters (62 letters and digits, "+" and "-") for the "timepinV3" encoder.
inline constexpr char alphabetB[] = "MBPSA4ekUtunGYibsETW1y3cz6jJRlQZfr9KdmI2gvONq0pCLaXHwDV8oFx5h7+-";

inline constexpr int keyPaddingSize = 62;
inline constexpr int alphabetSize = 64;

static_assert(sizeof(keyPadding) == keyPaddingSize + 1, "key-padding table has 62 characters");
static_assert(sizeof(alphabetA) == alphabetSize + 1, "alphabet A has 64 characters");
static_assert(sizeof(alphabetB) == alphabetSize + 1, "alphabet B has 64 characters");

} // namespace PinTables
