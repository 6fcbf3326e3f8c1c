// Pixel-by-pixel comparison of captured frames.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "host/emulator.h"

namespace pixels {

// Pixel (x, y) as 0xAARRGGBB; from memory, the four bytes of an RV32 or ARGB32
// pixel (B, G, R, X) read as one little-endian word.
using Image = std::function<uint32_t(int x, int y)>;

inline Image Rows(const uint8_t* first, int64_t rowBytes) {
    return [=](int x, int y) {
        uint32_t word;
        memcpy(&word, first + y * rowBytes + 4 * x, 4);
        return word;
    };
}
inline Image Opaque(Image image) {
    return [=](int x, int y) { return image(x, y) | 0xFF000000u; };
}
inline Image InPicture(emu::Host& host, const emu::Value& picture) {
    return [&host, picture](int x, int y) { return host.PixelARGB(picture, x, y); };
}

// The first pixel of width x height where a byte of `got` is more than
// `tolerance` off the one `want` has, or "" when none is.
inline std::string FirstWrong(int width, int height, const Image& got, const Image& want, int tolerance = 0) {
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint32_t a = got(x, y), b = want(x, y);
            for (int shift = 0; shift < 32; shift += 8)
                if (std::abs(int(a >> shift & 0xFF) - int(b >> shift & 0xFF)) > tolerance)
                    return "(" + std::to_string(x) + ", " + std::to_string(y) + ") has " + std::to_string(a) +
                           ", not " + std::to_string(b);
        }
    return "";
}

}  // namespace pixels
