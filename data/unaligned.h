// Loads and stores of values at any address. Values inside streams and
// inside decoded records may lie off their natural alignment, so every such
// access goes through memcpy, which the compiler turns into a plain move.
#ifndef ORBELLE_UNALIGNED_H
#define ORBELLE_UNALIGNED_H

#include <cstring>

template <typename T>
inline T load_unaligned(const void *at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

template <typename T>
inline void store_unaligned(void *at, T value) {
    std::memcpy(at, &value, sizeof value);
}

#endif
