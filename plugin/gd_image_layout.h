// The leading fields of gd 2's image record, as far as the plug-in reads them
// from pictures the host keeps as gd images. Declared here so the plug-in does
// not need gd's headers where gd is not installed (macOS); where they are, the
// offsets are checked against gd's own declaration.
#pragma once

namespace gd_layout {

constexpr int kMaxColors = 256;

struct Image {
    unsigned char** pixels;
    int sx;
    int sy;
    int colorsTotal;
    int red[kMaxColors];
    int green[kMaxColors];
    int blue[kMaxColors];
    int open[kMaxColors];
    int transparent;
    int* polyInts;
    int polyAllocated;
    Image* brush;
    Image* tile;
    int brushColorMap[kMaxColors];
    int tileColorMap[kMaxColors];
    int styleLength;
    int stylePos;
    int* style;
    int interlace;
    int thick;
    int alpha[kMaxColors];
    int trueColor;
    int** tpixels;
    int alphaBlendingFlag;
    // gd's record goes on; the plug-in never reads past this field.
};

}  // namespace gd_layout

#if __has_include(<gd.h>)
#include <gd.h>

#include <cstddef>

static_assert(gdMaxColors == gd_layout::kMaxColors);
#define QRV_GD_SAME_OFFSET(field) \
    static_assert(offsetof(gdImage, field) == offsetof(gd_layout::Image, field), "gd image field moved: " #field)
QRV_GD_SAME_OFFSET(pixels);
QRV_GD_SAME_OFFSET(sx);
QRV_GD_SAME_OFFSET(sy);
QRV_GD_SAME_OFFSET(colorsTotal);
QRV_GD_SAME_OFFSET(trueColor);
QRV_GD_SAME_OFFSET(tpixels);
QRV_GD_SAME_OFFSET(alphaBlendingFlag);
#undef QRV_GD_SAME_OFFSET
#endif
