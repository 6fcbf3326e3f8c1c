// Sweep expectations of the event manager, and of the instance's log and exit members.
#include "tests/support/test_support.h"
#include "tests/sweep/sweep.h"

using namespace sweep;
using emu::Host;

SWEEP_CLASS(EventManager) {
    ClassSweep c{"VLCEventManagerQRV"};
    c.initialised = [](Host& host) {
        return host.New("VLCEventManagerQRV", {host.New("VLCMediaPlayerQRV", {qrvtest::HeadlessInstance(host)})});
    };
    auto& m = c.members;
    for (auto [declaration, entry, message] : std::initializer_list<std::tuple<const char*, const char*, const char*>>{
             {"Constructor(MediaPlayer as VLCMediaPlayerQRV)", "_libvlc_media_player_event_manager",
              "media parameter is nil"},
             {"Constructor(Media as VLCMediaQRV)", "_libvlc_media_event_manager", "media parameter is nil"},
             {"Constructor(MediaDiscoverer as VLCMediaDiscovererQRV)", "_libvlc_media_discoverer_event_manager",
              "Discoverer parameter is nil"},
             {"Constructor(MediaList as VLCMediaListQRV)", "_libvlc_media_list_event_manager", "list parameter is nil"},
             {"Constructor(MediaListPlayer as VLCMediaListPlayerQRV)", "_libvlc_media_list_player_event_manager",
              "list parameter is nil"}})
        m.push_back({declaration, Missing(entry), Nil(message), Nil(message)});
    m.push_back(Silent("Listen"));
    for (const char* field : {"Handle", "Parent"}) {
        m.push_back(Field(field));
        m.push_back(Silent(std::string("set ") + field));
    }
    m.push_back(Field("VLC"));
    return c;
}

SWEEP_CLASS(InstanceLogAndExit) {
    ClassSweep c{"VLCInstanceQRV"};
    c.initialised = [](Host& host) { return qrvtest::HeadlessInstance(host); };
    auto& m = c.members;
    m.push_back(TFH("ClearLog", "_libvlc_log_unset"));
    // Guarded by the application-identifier function.
    m.push_back(TFH("SetLogFile(File as FolderItem)", "_libvlc_set_app_id").WithNil("File is nil!?"));
    m.push_back(TFH("SetLogEvent", "_libvlc_log_set"));
    m.push_back(Silent("ExitHandler as VLCExitHandlerQRV"));
    m.push_back(TFH("assign ExitHandler as VLCExitHandlerQRV", "_libvlc_set_exit_handler").WithNilRaising(Nothing()));
    return c;
}

SWEEP_CLASS(ExitHandlerClass) { return ClassSweep{"VLCExitHandlerQRV"}; }
