// Sweep expectations of the libvlc 3.0 additions (dialogs).
#include "tests/sweep/sweep.h"

namespace sweep {

std::vector<ClassSweep> DialogSweeps() {
    ClassSweep dialog{"VLCDialogQRV", {}, {}};
    dialog.members.push_back(
        TakesObject("Constructor(vlc as VLCInstanceQRV)", "_libvlc_dialog_set_callbacks", "vlc parameter is nil"));
    AddRows(dialog.members, HTF,
            {"PostLogin(id as integer, username as string, password as string, store as boolean) as boolean: "
             "dialog_post_login",
             "PostAction(id as integer, action as integer) as boolean: dialog_post_action",
             "Dismiss(id as integer) as boolean: dialog_dismiss"});
    return {dialog};
}

}  // namespace sweep
