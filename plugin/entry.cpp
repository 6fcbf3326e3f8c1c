// The plug-in's only export: learns the host's version, picks the record
// version for it and registers the classes.
#include "plugin/host_entries.h"
#include "plugin/registration.h"

double rbversion = 0.0;
int32_t CurrentREALControlVersion = 15;

namespace {

// Shared by the class flags and FixFlags: the 0x308 group is not understood
// before 2020.02; the picture marker becomes 4 from 2010.029 on, 0 before.
bool RewriteFlags(uint32_t& flags) {
    bool changed = false;
    if (rbversion < 2020.02 && (flags & 0x708) == 0x308) {
        flags = (flags & ~0x70Cu) | 4;
        changed = true;
    }
    if (flags & kFlagPictureMarker) {
        if (rbversion >= 2010.029)
            flags = (flags & ~(kFlagPictureMarker | 4u)) | 4;
        else
            flags &= ~kFlagPictureMarker;
        changed = true;
    }
    return changed;
}

template <typename Record>
void FixFlagList(Record* list, size_t count, uint32_t Record::*flagsMember) {
    if (list == nullptr || count < 1) return;
    for (size_t i = 0; i < count; ++i) {
        uint32_t flags = list[i].*flagsMember;
        if (RewriteFlags(flags)) list[i].*flagsMember = flags;
    }
}

int32_t RecordVersionFor(double version) {
    if (version >= 2013.04) return 13;
    if (version >= 2013.03) return 12;
    if (version >= 2013.0) return 11;
    if (version >= 2012.0) return 10;
    return 9;
}

}  // namespace

void FixFlags(REALmethodDefinition* list, size_t count, const char*) {
    FixFlagList(list, count, &REALmethodDefinition::mFlags);
}

void FixFlags(REALproperty* list, size_t count, const char*) { FixFlagList(list, count, &REALproperty::flags); }

RBInteger MyREALRegisterClass(REALclassDefinition* record) {
    RewriteFlags(record->mFlags);
    FixFlags(record->methods, record->methodCount, record->name);
    FixFlags(record->sharedMethods, record->sharedMethodCount, record->name);
    FixFlags(record->properties, record->propertyCount, record->name);
    FixFlags(record->sharedProperties, record->sharedPropertyCount, record->name);
    record->dataSize = (record->dataSize + 15) / 16 * 16;
    record->version = static_cast<uint32_t>(CurrentREALControlVersion);
    return REALRegisterClass(record);
}

extern "C" __attribute__((visibility("default"))) void REALPluginMain(ResolverFn resolver) {
    SetHostResolver(resolver);
    if (resolver != nullptr) {
        using VersionFn = double (*)();
        if (auto getVersion = reinterpret_cast<VersionFn>(resolver("REALGetRBVersion"))) rbversion = getVersion();
    }
    CurrentREALControlVersion = RecordVersionFor(rbversion);
    if (resolver == nullptr) return;

    // Every host this plug-in runs in offers this entry.
    using RegisterVersionFn = void (*)(int);
    reinterpret_cast<RegisterVersionFn>(resolver("RegisterPluginVersion"))(CurrentREALControlVersion);
    REALinRuntime();

    REALclassDefinition* const classes[] = {
        &VLCInstanceQRVClass,
        &VLCMediaQRVClass,
        &VLCMediaListQRVClass,
        &VLCMediaLibraryQRVClass,
        &VLCMediaPlayerQRVClass,
        &VLCEventManagerQRVClass,
        &VLCMediaListPlayerQRVClass,
        &VLCMediaDiscovererQRVClass,
        &VLCTrackDescriptionQRVClass,
        &VLCAudioOutputQRVClass,
        &VLCAudioOutputDeviceQRVClass,
        &VLCMissingFunctionExceptionQRVClass,
        &VLCNotInitializedExceptionQRVClass,
        &VLCMediaStatsQRVClass,
        &VLCMediaTrackInfoQRVClass,
        &VLCMediaTrackQRVClass,
        &VLCEqualizerQRVClass,
        &VLCExitHandlerQRVClass,
        &VLCModuleDescriptionQRVClass,
        &VLCMediaSlaveQRVClass,
        &VLCMediaDiscovererDescriptionQRVClass,
        &VLCRendererDiscovererQRVClass,
        &VLCRendererItemQRVClass,
        &VLCRendererDiscovererDescriptionQRVClass,
        &VLCDialogQRVClass,
    };
    for (REALclassDefinition* record : classes) MyREALRegisterClass(record);
}
