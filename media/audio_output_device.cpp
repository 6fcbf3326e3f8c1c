// VLCAudioOutputDeviceQRV: one node of libvlc's audio output device list.
#include <vlc/vlc.h>

#include "media/record_support.h"
#include "media/records.h"
#include "plugin/trace.h"

REALobject NewVLCAudioOutputDeviceQRV(const libvlc_audio_output_device_t* node) {
    return NewRecordChain<AudioOutputDeviceData>(node, "NewVLCAudioOutputDeviceQRV", VLCAudioOutputDeviceQRVClass,
                                                 [](auto& d, const auto& n) {
                                                     d.device = BuildStringUTF8(n.psz_device);
                                                     d.description = BuildStringUTF8(n.psz_description);
                                                     return &d.nextOutput;
                                                 });
}

// Also the constructor: a record made by host code starts and stays empty.
static void VLCAudioOutputDeviceDestructor(REALobject self) {
    auto& data = DataOf<AudioOutputDeviceData>(self, VLCAudioOutputDeviceQRVClass);
    ReleaseField(data.description);
    ReleaseField(data.device);
    ReleaseField(data.nextOutput);
}

namespace {

REALproperty kProperties[] = {
    QRV_FIELD_PROPERTY("Device", "String", AudioOutputDeviceData, device),
    QRV_FIELD_PROPERTY("Description", "String", AudioOutputDeviceData, description),
    QRV_FIELD_PROPERTY("NextOutput", "VLCAudioOutputDeviceQRV", AudioOutputDeviceData, nextOutput),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD_FLAGS(VLCAudioOutputDeviceDestructor, "Constructor", kFlagPrivateConstructor),
    QRV_METHOD(VLCAudioOutputDeviceDestructor, "Destructor"),
};

}  // namespace

REALclassDefinition VLCAudioOutputDeviceQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCAudioOutputDeviceQRV",
    .dataSize = sizeof(AudioOutputDeviceData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .methods = kMethods,
    .methodCount = std::size(kMethods),
    .mFlags = kFlagConsoleSafe,
};
