// Plain value structs that the data tree and the window share.
#pragma once

#include <cstdint>

/// A rectangle by its four edges.
struct CXBox2i {
    int32_t left = 0, top = 0, right = 0, bottom = 0;
    friend bool operator==(const CXBox2i&, const CXBox2i&) = default;
};
/// A point or size in whole units.
struct CXVector2i {
    int32_t x = 0, y = 0;
};
/// A point or direction.
struct CXVector2 {
    float x = 0, y = 0;
};
/// A colour by its components.
struct CXColor {
    float red = 0, green = 0, blue = 0, alpha = 0;
};
