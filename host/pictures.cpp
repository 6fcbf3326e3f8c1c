// Pictures: real gd images, cairo image surfaces or (Mac host) Core Graphics
// bitmap contexts, with their description locks counted.
#include <cstdio>

#include "host/emulator_internal.h"

namespace emu {

namespace {

ObjectInfo* CheckedPicture(REALobject picture, const char* entry) {
    return CheckedObjectOfKind(picture, entry, ObjectKind::Picture, "Picture");
}

}  // namespace

REALobject NewPictureObject(int width, int height) {
    if (width < 1 || height < 1) return nullptr;
    auto it = State().classes.find("Picture");
    REALobject picture = NewObject(it->second);
    ObjectInfo* info = State().Info(picture);
    info->width = width;
    info->height = height;
    PictureKind kind = Host::Current()->options().pictures;
    if (kind == PictureKind::Gd) {
        info->gd = gdImageCreateTrueColor(width, height);
        if (info->gd) gdImageSaveAlpha(info->gd, 1);
    } else if (kind == PictureKind::CGContext) {
        NewMacPicture(info);
    } else {
        info->surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
        info->cairo = cairo_create(info->surface);
    }
    return picture;
}

RBBoolean LockPictureDescription(REALobject picture, REALpictureDescription* out, uint32_t type) {
    ObjectInfo* info = CheckedPicture(picture, "REALLockPictureDescription");
    if (info == nullptr || out == nullptr) return 0;
    if (type == kPictureGDImagePtr && info->gd) {
        out->pictureData = info->gd;
    } else if (type == kPictureCairoContext && info->cairo) {
        cairo_surface_flush(info->surface);
        out->pictureData = info->cairo;
    } else if (type == kPictureCGBitmapContext && info->cgContext) {
        out->pictureData = info->cgContext;
    } else {
        return 0;
    }
    out->pictureType = type;
    out->width = info->width;
    out->height = info->height;
    out->depth = 32;
    out->transparent = 0;
    ++info->descriptionLocks;
    return 1;
}

void UnlockPictureDescription(REALobject picture) {
    ObjectInfo* info = CheckedPicture(picture, "unlockPictureDescription");
    if (info == nullptr) return;
    if (info->descriptionLocks == 0) {
        Fault("unlockPictureDescription was handed a Picture whose description is not locked");
        return;
    }
    --info->descriptionLocks;
}

void PictureClearCache(REALobject picture) {
    ObjectInfo* info = CheckedPicture(picture, "REALPictureClearCache");
    if (info && info->surface) cairo_surface_mark_dirty(info->surface);
    ++Host::Current()->clearCacheCalls;
}

// The host makes pictures of the depths its picture type has; others fail.
REALobject NewPictureEntry(RBInteger width, RBInteger height, RBInteger depth) {
    if (width > 100000 || height > 100000) return nullptr;
    if (Host::Current()->options().picturesShort) height /= 2;
    if (depth != 32 && depth != 24) return nullptr;
    return NewPictureObject(static_cast<int>(width), static_cast<int>(height));
}

RBInteger PictureGetType(REALobject picture) {
    ObjectInfo* info = CheckedPicture(picture, "PluginPictureGetType");
    if (info == nullptr) return 0;
    return info->gd ? kPictureGDImagePtr : info->cgContext ? kPictureCGBitmapContext : kPictureCairoContext;
}

// Pixel types of "REALBuildPictureFromBuffer"; anything else is read as BGRX.
constexpr uint32_t kPixelRGB24 = 1, kPixelBGR24 = 2, kPixelXRGB32 = 3;

REALobject BuildPictureFromBuffer(uint32_t width, uint32_t height, uint32_t pixelType, void* buffer,
                                  uint32_t rowBytes) {
    REALobject picture = NewPictureObject(static_cast<int>(width), static_cast<int>(height));
    if (picture == nullptr) return nullptr;
    ObjectInfo* info = State().Info(picture);
    for (uint32_t y = 0; y < height; ++y) {
        const auto* row = static_cast<const uint8_t*>(buffer) + static_cast<size_t>(y) * rowBytes;
        for (uint32_t x = 0; x < width; ++x) {
            uint8_t r = 0, g = 0, b = 0;
            switch (pixelType) {
                case kPixelRGB24:
                    r = row[x * 3], g = row[x * 3 + 1], b = row[x * 3 + 2];
                    break;
                case kPixelBGR24:
                    b = row[x * 3], g = row[x * 3 + 1], r = row[x * 3 + 2];
                    break;
                case kPixelXRGB32:
                    r = row[x * 4 + 1], g = row[x * 4 + 2], b = row[x * 4 + 3];
                    break;
                default:
                    b = row[x * 4], g = row[x * 4 + 1], r = row[x * 4 + 2];
                    break;
            }
            if (info->gd) {
                gdImageSetPixel(info->gd, static_cast<int>(x), static_cast<int>(y), gdTrueColor(r, g, b));
            } else if (info->cgContext) {
                SetMacPixelARGB(info, static_cast<int>(x), static_cast<int>(y),
                                0xFF000000u | (uint32_t{r} << 16) | (uint32_t{g} << 8) | b);
            } else {
                auto* data = reinterpret_cast<uint32_t*>(cairo_image_surface_get_data(info->surface) +
                                                         y * cairo_image_surface_get_stride(info->surface));
                data[x] = 0xFF000000u | (uint32_t{r} << 16) | (uint32_t{g} << 8) | b;
            }
        }
    }
    if (info->surface) cairo_surface_mark_dirty(info->surface);
    return picture;
}

Value Host::Picture(int width, int height) { return Value::AdoptObject(NewPictureObject(width, height)); }

PictureKind Host::PictureKindOf(const Value& picture) const {
    ObjectInfo* info = CheckedPicture(picture.AsObject(), "the host program");
    if (info && info->cgContext) return PictureKind::CGContext;
    return info && info->gd ? PictureKind::Gd : PictureKind::Cairo;
}

uint32_t Host::PixelARGB(const Value& picture, int x, int y) const {
    ObjectInfo* info = CheckedPicture(picture.AsObject(), "the host program");
    if (info == nullptr || x < 0 || y < 0 || x >= info->width || y >= info->height) return 0;
    if (info->gd) {
        int c = gdImageGetTrueColorPixel(info->gd, x, y);
        uint32_t alpha = static_cast<uint32_t>(255 - (gdTrueColorGetAlpha(c) * 255 / 127));
        return (alpha << 24) | (static_cast<uint32_t>(gdTrueColorGetRed(c)) << 16) |
               (static_cast<uint32_t>(gdTrueColorGetGreen(c)) << 8) | static_cast<uint32_t>(gdTrueColorGetBlue(c));
    }
    if (info->cgContext) return MacPixelARGB(info, x, y);
    cairo_surface_flush(info->surface);
    const unsigned char* data = cairo_image_surface_get_data(info->surface);
    int stride = cairo_image_surface_get_stride(info->surface);
    return reinterpret_cast<const uint32_t*>(data + y * stride)[x];
}

bool Host::SavePNG(const Value& picture, const std::string& path) const {
    ObjectInfo* info = CheckedPicture(picture.AsObject(), "the host program");
    if (info == nullptr) return false;
    if (info->gd) {
        FILE* out = fopen(path.c_str(), "wb");
        if (out == nullptr) return false;
        gdImagePng(info->gd, out);
        return fclose(out) == 0;
    }
    if (info->cgContext) return false;
    return cairo_surface_write_to_png(info->surface, path.c_str()) == CAIRO_STATUS_SUCCESS;
}

}  // namespace emu
