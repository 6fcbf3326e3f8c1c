// Sweep expectations of the libvlc 3.0 additions (discovery).
#include "tests/sweep/sweep.h"

namespace sweep {

std::vector<ClassSweep> DiscoverySweeps() {
    const char kVlcNil[] = "vlc parameter is nil";
    ClassSweep instance{"VLCInstanceQRV"};
    AddRows(instance.members, TFH,
            {"MediaDiscoverers(category as integer) as VLCMediaDiscovererDescriptionQRV: media_discoverer_list_get",
             "RendererDiscoverers as VLCRendererDiscovererDescriptionQRV: renderer_discoverer_list_get"});

    ClassSweep mediaDiscoverer{"VLCMediaDiscovererQRV"};
    AddRows(mediaDiscoverer.members, HTF, {"Start as boolean: media_discoverer_start", "Stop: media_discoverer_stop"});
    mediaDiscoverer.members.push_back(
        TakesObject("shared Create(vlc as VLCInstanceQRV, name as string) as VLCMediaDiscovererQRV",
                    "_libvlc_media_discoverer_new", kVlcNil));

    ClassSweep rendererDiscoverer{"VLCRendererDiscovererQRV"};
    AddRows(rendererDiscoverer.members, HTF,
            {"Start as boolean: renderer_discoverer_start", "Stop: renderer_discoverer_stop"});
    rendererDiscoverer.members.push_back(
        TakesObject("Constructor(vlc as VLCInstanceQRV, name as string)", "_libvlc_renderer_discoverer_new", kVlcNil));

    ClassSweep player{"VLCMediaPlayerQRV"};
    AddRows(player.members, TFH,
            {"SnapshotPicture(width as integer, height as integer) as Picture: video_take_snapshot"});
    // Nil is the local output, not an error.
    player.members.push_back(
        TFH("SetRenderer(item as VLCRendererItemQRV) as boolean", "_libvlc_media_player_set_renderer")
            .WithNil(Nothing()));
    return {instance, mediaDiscoverer, rendererDiscoverer, player};
}

}  // namespace sweep
