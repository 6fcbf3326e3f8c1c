// VLCModuleDescriptionQRV: one node of libvlc's module (filter) description list.
#include <vlc/vlc.h>

#include "media/record_support.h"
#include "media/records.h"

REALobject NewVLCModuleDescriptionQRV(const libvlc_module_description_t* node) {
    return NewRecordChain<ModuleDescriptionData>(node, "NewVLCModuleDescriptionQRV", VLCModuleDescriptionQRVClass,
                                                 [](auto& d, const auto& n) {
                                                     d.name = BuildStringUTF8(n.psz_name);
                                                     d.shortName = BuildStringUTF8(n.psz_shortname);
                                                     d.longName = BuildStringUTF8(n.psz_longname);
                                                     d.help = BuildStringUTF8(n.psz_help);
                                                     return &d.nextModule;
                                                 });
}

static void VLCModuleDescriptionDestructor(REALobject self) {
    auto& data = DataOf<ModuleDescriptionData>(self, VLCModuleDescriptionQRVClass);
    ReleaseField(data.name);
    ReleaseField(data.shortName);
    ReleaseField(data.longName);
    ReleaseField(data.help);
    ReleaseField(data.nextModule);
}

namespace {

REALproperty kProperties[] = {
    QRV_FIELD_PROPERTY("Name", "String", ModuleDescriptionData, name),
    QRV_FIELD_PROPERTY("ShortName", "String", ModuleDescriptionData, shortName),
    QRV_FIELD_PROPERTY("LongName", "String", ModuleDescriptionData, longName),
    QRV_FIELD_PROPERTY("Help", "String", ModuleDescriptionData, help),
    QRV_FIELD_PROPERTY("NextModule", "VLCModuleDescriptionQRV", ModuleDescriptionData, nextModule),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD(VLCModuleDescriptionDestructor, "Destructor"),
};

}  // namespace

REALclassDefinition VLCModuleDescriptionQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCModuleDescriptionQRV",
    .dataSize = sizeof(ModuleDescriptionData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .methods = kMethods,
    .methodCount = std::size(kMethods),
    .mFlags = kFlagConsoleSafe,
};
