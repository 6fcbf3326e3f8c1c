// Host picture pixels: a scoped accessor that locks a picture's pixel
// description, exposes its rows and unlocks it again.
#pragma once

#include <cstdint>

#include "plugin/host_abi.h"
#include "plugin/platform.h"

class PictureEditor {
public:
    PictureEditor() = default;
    virtual ~PictureEditor() { clear(); }
    PictureEditor(const PictureEditor&) = delete;
    PictureEditor& operator=(const PictureEditor&) = delete;

    // Locks the picture in the storage the host reports for it: a gd image
    // (type 10) or the platform's own (Core Graphics bitmap context or cairo).
    bool Open(REALpicture picture);
    bool GetPictureEditorGDImagePtr(REALpicture picture);
    bool GetPictureEditorNative(REALpicture picture);
    // Unlocks (once), and tells the host when pixels were written.
    void clear();
    // The address of row y, or null past the height.
    uint8_t* GetRow(int64_t y);

    REALpicture picture = nullptr;
    REALpictureDescription description{};
    bool NeedPictureUnlock = false;
    bool reading = false;
    bool writing = false;
    PictureGeometry geometry;
    int64_t verticalResolution = 0;
    int64_t horizontalResolution = 0;

private:
    bool Lock(REALpicture picture, uint32_t type, const char* okText, const char* failedText);
    void Remember(REALpicture picture);
};

// Creates a new 32-bit picture of the given size and opens it for writing.
class PictureWriter : public PictureEditor {
public:
    PictureWriter(int64_t width, int64_t height);
    ~PictureWriter() override;
    // Ends the writing; answers the picture with one reference for the caller.
    REALpicture RenderPictureWriter();

private:
    REALpicture created_ = nullptr;
};

// Unlocks a description at the end of a scope unless released.
class rbUnlockPictureDescriptionLater {
public:
    explicit rbUnlockPictureDescriptionLater(REALpicture picture) : picture_(picture) {}
    ~rbUnlockPictureDescriptionLater();
    void Release() { picture_ = nullptr; }

private:
    REALpicture picture_;
};
