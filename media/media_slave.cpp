// VLCMediaSlaveQRV: one subtitle or audio file attached to a media.
#include <vlc/vlc.h>

#include "media/media.h"
#include "media/record_support.h"

namespace {

struct MediaSlaveData {
    REALstring uri;
    int64_t type;
    int64_t priority;
    REALobject nextSlave;
};

}  // namespace

REALobject NewVLCMediaSlaveQRV(libvlc_media_slave_t* const* slaves, size_t count) {
    return NewRecordChainFromArray<MediaSlaveData>(slaves, count, "NewVLCMediaSlaveQRV", VLCMediaSlaveQRVClass,
                                                   [](auto& d, const auto& slave) {
                                                       d.uri = BuildStringUTF8(slave.psz_uri);
                                                       d.type = slave.i_type;
                                                       d.priority = slave.i_priority;
                                                       return &d.nextSlave;
                                                   });
}

static void VLCMediaSlaveDestructor(REALobject self) {
    auto& data = DataOf<MediaSlaveData>(self, VLCMediaSlaveQRVClass);
    ReleaseField(data.uri);
    ReleaseField(data.nextSlave);
}

namespace {

REALproperty kProperties[] = {
    QRV_FIELD_PROPERTY("URI", "String", MediaSlaveData, uri),
    QRV_FIELD_PROPERTY("Type", "Integer", MediaSlaveData, type),
    QRV_FIELD_PROPERTY("Priority", "Integer", MediaSlaveData, priority),
    QRV_FIELD_PROPERTY("NextSlave", "VLCMediaSlaveQRV", MediaSlaveData, nextSlave),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD(VLCMediaSlaveDestructor, "Destructor"),
};

}  // namespace

REALclassDefinition VLCMediaSlaveQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaSlaveQRV",
    .dataSize = sizeof(MediaSlaveData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .methods = kMethods,
    .methodCount = std::size(kMethods),
    .mFlags = kFlagConsoleSafe,
};
