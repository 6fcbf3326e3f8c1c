// VLCAudioOutputQRV: one node of libvlc's audio output list.
#include <vlc/vlc.h>

#include "media/record_support.h"
#include "media/records.h"
#include "plugin/trace.h"

REALobject NewVLCAudioOutputQRV(const libvlc_audio_output_t* node) {
    return NewRecordChain<AudioOutputData>(node, "NewVLCAudioOutputQRV", VLCAudioOutputQRVClass,
                                           [](auto& d, const auto& n) {
                                               d.name = BuildStringUTF8(n.psz_name);
                                               d.description = BuildStringUTF8(n.psz_description);
                                               return &d.nextOutput;
                                           });
}

// Also the constructor: a record made by host code starts and stays empty.
static void VLCAudioOutputDestructor(REALobject self) {
    auto& data = DataOf<AudioOutputData>(self, VLCAudioOutputQRVClass);
    ReleaseField(data.description);
    ReleaseField(data.name);
    ReleaseField(data.nextOutput);
}

namespace {

REALproperty kProperties[] = {
    QRV_FIELD_PROPERTY("Name", "String", AudioOutputData, name),
    QRV_FIELD_PROPERTY("Description", "String", AudioOutputData, description),
    QRV_FIELD_PROPERTY("NextOutput", "VLCAudioOutputQRV", AudioOutputData, nextOutput),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD_FLAGS(VLCAudioOutputDestructor, "Constructor", kFlagPrivateConstructor),
    QRV_METHOD(VLCAudioOutputDestructor, "Destructor"),
};

}  // namespace

REALclassDefinition VLCAudioOutputQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCAudioOutputQRV",
    .dataSize = sizeof(AudioOutputData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .methods = kMethods,
    .methodCount = std::size(kMethods),
    .mFlags = kFlagConsoleSafe,
};
