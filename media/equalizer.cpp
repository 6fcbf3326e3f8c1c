// VLCEqualizerQRV: one libvlc audio equalizer. Instance members trace, test the
// libvlc function, then the handle (GUARD_TFH); band indexes are passed to
// libvlc unchecked.
#include "media/equalizer.h"

#include <vlc/vlc.h>

#include "binding/library.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"
#include "plugin/text.h"

namespace {

EqualizerData& EqualizerOf(REALobject self) { return DataOf<EqualizerData>(self, VLCEqualizerQRVClass); }
libvlc_equalizer_t* EqualizerHandle(REALobject self) {
    return reinterpret_cast<libvlc_equalizer_t*>(EqualizerOf(self).handle);
}

void Adopt(REALobject self, libvlc_equalizer_t* equalizer, REALobject vlc) {
    EqualizerOf(self).handle = reinterpret_cast<int64_t>(equalizer);
    EqualizerOf(self).vlc = vlc;
    if (vlc != nullptr) REALLockObject(vlc);
}

}  // namespace

// Everything the destructor ends; a constructor run again ends it first.
static void EndEqualizer(EqualizerData& d) {
    ReleaseHandleAndInstance(d.handle, vlcfn::_libvlc_audio_equalizer_release, d.vlc);
}

static void VLCEqualizerConstructor1(REALobject self, REALobject vlc) {
    NoteLibvlcHolder(self);
    TRACE("VLCEqualizerConstructor1");
    EndEqualizer(EqualizerOf(self));
    if (!VLC_NEED(libvlc_audio_equalizer_new)) return;
    Adopt(self, vlcfn::_libvlc_audio_equalizer_new(), vlc);
}

// An invalid preset leaves the object uninitialised, without an exception.
static void VLCEqualizerConstructor2(REALobject self, RBInteger index, REALobject vlc) {
    NoteLibvlcHolder(self);
    TRACE("VLCEqualizerConstructor2");
    EndEqualizer(EqualizerOf(self));
    if (!VLC_NEED(libvlc_audio_equalizer_new_from_preset)) return;
    Adopt(self, vlcfn::_libvlc_audio_equalizer_new_from_preset(static_cast<unsigned>(index)), vlc);
}

static void VLCEqualizerDestructor(REALobject self) {
    EndEqualizer(EqualizerOf(self));
    ForgetLibvlcHolder(self);
}

// An equalizer is not reference counted in libvlc: only 0 is written.
static void SetHandle(REALobject self, RBInteger, RBInteger value) {
    EqualizerData& d = EqualizerOf(self);
    WriteHandle<libvlc_equalizer_t>(d.handle, value, nullptr, "_libvlc_audio_equalizer_retain",
                                    [&d] { ReleaseHandle(d.handle, vlcfn::_libvlc_audio_equalizer_release); });
}

static float getmap(REALobject self, RBInteger index) {
    GUARD_TFH(EqualizerOf(self).handle, "getmap", libvlc_audio_equalizer_get_amp_at_index, 0.0f);
    return vlcfn::_libvlc_audio_equalizer_get_amp_at_index(EqualizerHandle(self), static_cast<unsigned>(index));
}

static void setmap(REALobject self, RBInteger index, float value) {
    GUARD_TFH(EqualizerOf(self).handle, "setmap", libvlc_audio_equalizer_set_amp_at_index, );
    vlcfn::_libvlc_audio_equalizer_set_amp_at_index(EqualizerHandle(self), value, static_cast<unsigned>(index));
}

static float getpreamp(REALobject self, RBInteger) {
    GUARD_TFH(EqualizerOf(self).handle, "getpreamp", libvlc_audio_equalizer_get_preamp, 0.0f);
    return vlcfn::_libvlc_audio_equalizer_get_preamp(EqualizerHandle(self));
}

static void setpreamp(REALobject self, RBInteger, float value) {
    GUARD_TFH(EqualizerOf(self).handle, "setpreamp", libvlc_audio_equalizer_set_preamp, );
    vlcfn::_libvlc_audio_equalizer_set_preamp(EqualizerHandle(self), value);
}

static RBInteger audio_equalizer_get_preset_count() {
    TRACE("audio_equalizer_get_preset_count");
    if (!VLC_NEED(libvlc_audio_equalizer_get_preset_count)) return 0;
    return vlcfn::_libvlc_audio_equalizer_get_preset_count();
}

static RBInteger audio_equalizer_get_band_count() {
    TRACE("audio_equalizer_get_band_count");
    if (!VLC_NEED(libvlc_audio_equalizer_get_band_count)) return 0;
    return vlcfn::_libvlc_audio_equalizer_get_band_count();
}

// Item function, trace again, count function, then the index against the count.
#define GUARD_INDEXED(traceName, itemFn, countFn, zero) \
    TRACE(traceName);                                   \
    if (!VLC_NEED(itemFn)) return zero;                 \
    TRACE(traceName);                                   \
    if (!VLC_NEED(countFn)) return zero

static REALstring audio_equalizer_get_preset_name(RBInteger index) {
    GUARD_INDEXED("audio_equalizer_get_preset_name", libvlc_audio_equalizer_get_preset_name,
                  libvlc_audio_equalizer_get_preset_count, nullptr);
    int64_t count = vlcfn::_libvlc_audio_equalizer_get_preset_count();
    if (index < 0 || index >= count) {
        RaiseOutOfBoundsException(index, count, "index", "PresetName");
        return nullptr;
    }
    return BuildStringUTF8(vlcfn::_libvlc_audio_equalizer_get_preset_name(static_cast<unsigned>(index)));
}

static double audio_equalizer_get_band_frequency(RBInteger index) {
    GUARD_INDEXED("audio_equalizer_get_band_frequency", libvlc_audio_equalizer_get_band_frequency,
                  libvlc_audio_equalizer_get_band_count, 0.0);
    int64_t count = vlcfn::_libvlc_audio_equalizer_get_band_count();
    if (index < 0 || index >= count) {
        RaiseOutOfBoundsException(index, count, "index", "BandFrequency");
        return 0.0;
    }
    return vlcfn::_libvlc_audio_equalizer_get_band_frequency(static_cast<unsigned>(index));
}

namespace {

REALproperty kProperties[] = {
    QRV_PROPERTY("Handle", "Integer", ReadHandle<VLCEqualizerQRVClass>, SetHandle),
    QRV_READONLY_FIELD_PROPERTY("VLC", "VLCInstanceQRV", EqualizerData, vlc),
    QRV_PROPERTY("Preamp", "Single", getpreamp, setpreamp),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD(VLCEqualizerConstructor1, "Constructor(vlc as VLCInstanceQRV = nil)"),
    QRV_METHOD(VLCEqualizerConstructor2, "Constructor(index as Integer, vlc as VLCInstanceQRV = nil)"),
    QRV_METHOD(VLCEqualizerDestructor, "Destructor"),
    QRV_ASSIGN_METHOD(getmap, setmap, "Map(Index as Integer) as Single"),
};

REALproperty kSharedProperties[] = {
    QRV_READONLY_PROPERTY("PresetCount", "Integer", audio_equalizer_get_preset_count),
    QRV_READONLY_PROPERTY("BandCount", "Integer", audio_equalizer_get_band_count),
};

REALmethodDefinition kSharedMethods[] = {
    QRV_METHOD(audio_equalizer_get_preset_name, "PresetName(index as Integer) as string"),
    QRV_METHOD(audio_equalizer_get_band_frequency, "BandFrequency(index as Integer) as double"),
};

}  // namespace

REALclassDefinition VLCEqualizerQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCEqualizerQRV",
    .dataSize = sizeof(EqualizerData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .methods = kMethods,
    .methodCount = std::size(kMethods),
    .mFlags = kFlagConsoleSafe,
    .sharedProperties = kSharedProperties,
    .sharedPropertyCount = std::size(kSharedProperties),
    .sharedMethods = kSharedMethods,
    .sharedMethodCount = std::size(kSharedMethods),
};
