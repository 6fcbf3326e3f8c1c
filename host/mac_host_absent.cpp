// Without the Apple stand-ins the emulator plays the Linux host only: asking
// for the Mac host's pictures is a fault of the test that asks.
#include "host/emulator_internal.h"

namespace emu {

PictureKind NativePictureKind() { return PictureKind::Cairo; }

void NewMacPicture(ObjectInfo*) { Fault("Core Graphics pictures need the build on the Apple stand-ins"); }
uint8_t* MacPictureRows(const ObjectInfo*, int64_t* rowBytes) {
    *rowBytes = 0;
    return nullptr;
}
void ReleaseMacPicture(ObjectInfo*) {}
void ReleaseImageField(ObjectInfo*) {}

}  // namespace emu
