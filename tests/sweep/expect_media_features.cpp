// Sweep expectations of the libvlc 3.0 additions (media_features).
#include "tests/sweep/sweep.h"

namespace sweep {

std::vector<ClassSweep> MediaFeatureSweeps() {
    ClassSweep media{"VLCMediaQRV"};
    AddRows(media.members, HTF,
            {"ParseWithOptions(flags as integer, timeout as integer) as boolean: media_parse_with_options",
             "ParseStop: media_parse_stop", "ParsedStatus as integer: media_get_parsed_status",
             "AddSlave(type as integer, priority as integer, uri as string) as boolean: media_slaves_add",
             "ClearSlaves: media_slaves_clear", "Slaves as VLCMediaSlaveQRV: media_slaves_get"});
    media.members.push_back(
        TakesObject("shared MediaWithMemoryBlock(vlc as VLCInstanceQRV, data as MemoryBlock) as VLCMediaQRV",
                    "_libvlc_media_new_callbacks", "vlc parameter is nil"));
    ClassSweep player{"VLCMediaPlayerQRV"};
    AddRows(player.members, TFH,
            {"Role as integer: media_player_get_role", "SetRole(role as integer) as boolean: media_player_set_role",
             "AddSlave(type as integer, uri as string, select as boolean) as boolean: media_player_add_slave"});
    return {media, player, ClassSweep{"VLCMediaSlaveQRV"}};
}

}  // namespace sweep
