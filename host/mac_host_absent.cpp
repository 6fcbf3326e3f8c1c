// Without the Apple stand-ins the emulator plays the Linux host only: asking
// for the Mac host's pictures is a fault of the test that asks.
#include "host/emulator_internal.h"

namespace emu {

PictureKind NativePictureKind() { return PictureKind::Cairo; }

void NewMacPicture(ObjectInfo*) { Fault("Core Graphics pictures need the build on the Apple stand-ins"); }
uint32_t MacPixelARGB(const ObjectInfo*, int, int) { return 0; }
void SetMacPixelARGB(const ObjectInfo*, int, int, uint32_t) {}
void ReleaseMacPicture(ObjectInfo*) {}
void ReleaseImageField(ObjectInfo*) {}

}  // namespace emu
