// The services libvlc can discover media or renderers with, as record chains.
#include "media/discovery.h"
#include "media/record_support.h"

namespace {

struct MediaDiscovererDescriptionData {
    REALstring name;
    REALstring longName;
    int64_t category;
    REALobject nextDescription;
};

struct RendererDiscovererDescriptionData {
    REALstring name;
    REALstring longName;
    REALobject nextDescription;
};

}  // namespace

REALobject NewVLCMediaDiscovererDescriptionQRV(libvlc_media_discoverer_description_t* const* services, size_t count) {
    return NewRecordChainFromArray<MediaDiscovererDescriptionData>(
        services, count, "NewVLCMediaDiscovererDescriptionQRV", VLCMediaDiscovererDescriptionQRVClass,
        [](auto& d, const auto& service) {
            d.name = BuildStringUTF8(service.psz_name);
            d.longName = BuildStringUTF8(service.psz_longname);
            d.category = static_cast<int64_t>(service.i_cat);
            return &d.nextDescription;
        });
}

REALobject NewVLCRendererDiscovererDescriptionQRV(libvlc_rd_description_t* const* services, size_t count) {
    return NewRecordChainFromArray<RendererDiscovererDescriptionData>(
        services, count, "NewVLCRendererDiscovererDescriptionQRV", VLCRendererDiscovererDescriptionQRVClass,
        [](auto& d, const auto& service) {
            d.name = BuildStringUTF8(service.psz_name);
            d.longName = BuildStringUTF8(service.psz_longname);
            return &d.nextDescription;
        });
}

static void VLCMediaDiscovererDescriptionDestructor(REALobject self) {
    auto& data = DataOf<MediaDiscovererDescriptionData>(self, VLCMediaDiscovererDescriptionQRVClass);
    ReleaseField(data.name);
    ReleaseField(data.longName);
    ReleaseField(data.nextDescription);
}

static void VLCRendererDiscovererDescriptionDestructor(REALobject self) {
    auto& data = DataOf<RendererDiscovererDescriptionData>(self, VLCRendererDiscovererDescriptionQRVClass);
    ReleaseField(data.name);
    ReleaseField(data.longName);
    ReleaseField(data.nextDescription);
}

namespace {

REALproperty kMediaProperties[] = {
    QRV_FIELD_PROPERTY("Name", "String", MediaDiscovererDescriptionData, name),
    QRV_FIELD_PROPERTY("LongName", "String", MediaDiscovererDescriptionData, longName),
    QRV_FIELD_PROPERTY("Category", "Integer", MediaDiscovererDescriptionData, category),
    QRV_FIELD_PROPERTY("NextDescription", "VLCMediaDiscovererDescriptionQRV", MediaDiscovererDescriptionData,
                       nextDescription),
};

REALmethodDefinition kMediaMethods[] = {
    QRV_METHOD(VLCMediaDiscovererDescriptionDestructor, "Destructor"),
};

REALproperty kRendererProperties[] = {
    QRV_FIELD_PROPERTY("Name", "String", RendererDiscovererDescriptionData, name),
    QRV_FIELD_PROPERTY("LongName", "String", RendererDiscovererDescriptionData, longName),
    QRV_FIELD_PROPERTY("NextDescription", "VLCRendererDiscovererDescriptionQRV", RendererDiscovererDescriptionData,
                       nextDescription),
};

REALmethodDefinition kRendererMethods[] = {
    QRV_METHOD(VLCRendererDiscovererDescriptionDestructor, "Destructor"),
};

}  // namespace

REALclassDefinition VLCMediaDiscovererDescriptionQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaDiscovererDescriptionQRV",
    .dataSize = sizeof(MediaDiscovererDescriptionData),
    .properties = kMediaProperties,
    .propertyCount = std::size(kMediaProperties),
    .methods = kMediaMethods,
    .methodCount = std::size(kMediaMethods),
    .mFlags = kFlagConsoleSafe,
};
REALclassDefinition VLCRendererDiscovererDescriptionQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCRendererDiscovererDescriptionQRV",
    .dataSize = sizeof(RendererDiscovererDescriptionData),
    .properties = kRendererProperties,
    .propertyCount = std::size(kRendererProperties),
    .methods = kRendererMethods,
    .methodCount = std::size(kRendererMethods),
    .mFlags = kFlagConsoleSafe,
};
