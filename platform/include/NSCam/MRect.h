#pragma once
// Host implementation of the camera stack's rectangle type.

#include <cstdint>

namespace NSCam {

// A rectangle in sensor pixel coordinates: origin (left, top) and size.
struct MRect {
    int32_t left = 0;
    int32_t top = 0;
    int32_t width = 0;
    int32_t height = 0;

    MRect() = default;
    MRect(int32_t l, int32_t t, int32_t w, int32_t h) : left(l), top(t), width(w), height(h) {}

    friend bool operator==(MRect const& a, MRect const& b) {
        return a.left == b.left && a.top == b.top && a.width == b.width && a.height == b.height;
    }
    friend bool operator!=(MRect const& a, MRect const& b) { return !(a == b); }
};

}  // namespace NSCam
