#include "plugin/picture.h"

#include "plugin/gd_image_layout.h"
#include "plugin/host_entries.h"
#include "plugin/trace.h"

rbUnlockPictureDescriptionLater::~rbUnlockPictureDescriptionLater() {
    if (picture_ != nullptr) REALUnlockPictureDescription(picture_);
}

bool PictureEditor::Open(REALpicture target) {
    if (REALGetPictureType(target) == kPictureGDImagePtr) return GetPictureEditorGDImagePtr(target);
    return GetPictureEditorNative(target);
}

bool PictureEditor::Lock(REALpicture target, uint32_t type, const char* okText, const char* failedText) {
    description = REALpictureDescription{};
    if (!REALLockPictureDescription(target, &description, type)) {
        TRACE(failedText);
        return false;
    }
    TRACE(okText);
    return true;
}

void PictureEditor::Remember(REALpicture target) {
    TRACEF("%p", "setPicture", static_cast<void*>(target));
    picture = target;
    NeedPictureUnlock = true;
    REALGetPropValueInteger(target, "VerticalResolution", &verticalResolution);
    REALGetPropValueInteger(target, "HorizontalResolution", &horizontalResolution);
}

// gd's true-colour images keep one pointer per row ("tpixels").
bool PictureEditor::GetPictureEditorGDImagePtr(REALpicture target) {
    TRACE("GetPictureEditorGDImagePtr");
    if (!Lock(target, kPictureGDImagePtr, "REALLockPictureDescription with pictureGDImagePtr ok.",
              "REALLockPictureDescription with pictureGDImagePtr failed."))
        return false;
    rbUnlockPictureDescriptionLater unlock(target);
    auto image = static_cast<gd_layout::Image*>(description.pictureData);
    TRACEF("%p", "gdImagePtr handle", static_cast<void*>(image));
    if (description.pictureType != kPictureGDImagePtr || image == nullptr) return false;
    if (DebuggingEnabled == 1) {
        LogMessageX("%s%s %p", kTracePrefix, "pixels", static_cast<void*>(image->pixels));
        LogMessageX("%s%s %d", kTracePrefix, "sx", image->sx);
        LogMessageX("%s%s %d", kTracePrefix, "sy", image->sy);
        LogMessageX("%s%s %d", kTracePrefix, "colorsTotal", image->colorsTotal);
        LogMessageX("%s%s %d", kTracePrefix, "trueColor", image->trueColor);
        LogMessageX("%s%s %p", kTracePrefix, "tpixels", static_cast<void*>(image->tpixels));
        LogMessageX("%s%s %d", kTracePrefix, "alphaBlendingFlag", image->alphaBlendingFlag);
    }
    if (!image->trueColor || image->tpixels == nullptr) {
        TRACE("BitsPerPixel is not 32.");
        return false;
    }
    geometry = PictureGeometry{};
    geometry.rows = reinterpret_cast<uint8_t**>(image->tpixels);
    geometry.width = image->sx;
    geometry.height = image->sy;
    geometry.rowBytes = int64_t{image->sx} * 4;
    geometry.bitsPerPixel = 32;
    geometry.layout = PixelLayout::RowTable;
    TRACEF("%p", "base", static_cast<void*>(geometry.rows));
    unlock.Release();
    Remember(target);
    return true;
}

bool PictureEditor::GetPictureEditorNative(REALpicture target) {
    TRACE("GetPictureEditorNative");
    if (!Lock(target, PlatformNativePictureType(), "REALLockPictureDescription with native picture ok.",
              "REALLockPictureDescription with native picture failed."))
        return false;
    rbUnlockPictureDescriptionLater unlock(target);
    PictureGeometry found;
    if (!PlatformNativePictureGeometry(description, found)) return false;
    if (found.bitsPerPixel != 32) {
        TRACE("BitsPerPixel is not 32.");
        return false;
    }
    geometry = found;
    unlock.Release();
    Remember(target);
    return true;
}

void PictureEditor::clear() {
    TRACE("clear");
    TRACEF("%d", "NeedPictureUnlock", NeedPictureUnlock ? 1 : 0);
    if (NeedPictureUnlock) {
        if (writing && geometry.layout != PixelLayout::RowTable) PlatformNativePictureWritten(description);
        REALUnlockPictureDescription(picture);
        NeedPictureUnlock = false;
        TRACEF("%d", "reading", reading ? 1 : 0);
        TRACEF("%d", "writing", writing ? 1 : 0);
        if (writing) REALPictureClearCache(picture);
        writing = false;
        reading = false;
        TRACE("ClosePictureReader done");
    }
}

uint8_t* PictureEditor::GetRow(int64_t y) {
    if (y >= geometry.height || y < 0) {
        if (DebuggingEnabled == 1)
            LogMessageX("y too big: %d of %d in %s", static_cast<int>(y), static_cast<int>(geometry.height), "GetRow");
        return nullptr;
    }
    if (geometry.rows != nullptr) {
        uint8_t* row = geometry.rows[y];
        if (row == nullptr) TRACE("r is nil!");
        return row;
    }
    if (geometry.base == nullptr) {
        TRACE("Warning: Pixelbase is nil!");
        return nullptr;
    }
    return geometry.base + y * geometry.rowBytes;
}

PictureWriter::PictureWriter(int64_t width, int64_t height) {
    TRACEF("%lld, %lld", "NewPictureWriter with size", static_cast<long long>(width), static_cast<long long>(height));
    if (width < 1) {
        TRACE("width < 1");
        return;
    }
    if (height < 1) {
        TRACE("height < 1");
        return;
    }
    if (width > 32767) {
        TRACE("width > 32767");
        return;
    }
    if (height > 32767) {
        TRACE("height > 32767");
        return;
    }
    TRACEF("%lld, %lld, %lld", "MyREALNewPicture", static_cast<long long>(width), static_cast<long long>(height), 32LL);
    created_ = REALNewPicture(width, height, 32);
    TRACEF("%p", "pic", static_cast<void*>(created_));
    if (created_ == nullptr) return;
    if (!Open(created_)) {
        TRACE("GetPictureEditor failed");
        REALUnlockObject(created_);
        created_ = nullptr;
        return;
    }
    writing = true;
}

// A writer given up before rendering gives its picture back.
PictureWriter::~PictureWriter() {
    clear();
    if (created_ != nullptr) REALUnlockObject(created_);
}

REALpicture PictureWriter::RenderPictureWriter() {
    TRACE("RenderPictureWriter");
    clear();
    REALpicture result = created_;
    created_ = nullptr;
    TRACE("RenderPictureWriter done");
    return result;
}
