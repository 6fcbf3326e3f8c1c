// VLCMediaPlayerQRV.SnapshotPicture: libvlc writes a snapshot of the current
// video as a PNG file (before take_snapshot returns); it is read back into a
// new host picture, and the file is always removed.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "media/discovery.h"
#include "playback/frame_capture.h"
#include "plugin/guard.h"
#include "plugin/picture.h"

namespace {

// The largest picture side the plug-in makes (PictureWriter's limit).
constexpr RBInteger kLargestSide = 32767;

// A private, empty file in the system's temporary folder, removed with the scope.
class TemporarySnapshotFile {
public:
    TemporarySnapshotFile() {
        const char* folder = getenv("TMPDIR");
        path_ = std::string(folder != nullptr && *folder != '\0' ? folder : "/tmp") + "/qrv-snapshot-XXXXXX.png";
        int fd = mkstemps(path_.data(), 4);
        if (fd < 0) {
            path_.clear();
            return;
        }
        close(fd);
    }
    ~TemporarySnapshotFile() {
        if (!path_.empty()) unlink(path_.c_str());
    }
    TemporarySnapshotFile(const TemporarySnapshotFile&) = delete;
    TemporarySnapshotFile& operator=(const TemporarySnapshotFile&) = delete;

    // Empty when the file could not be made.
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

}  // namespace

// Sizes outside 1..32767, no video or a failed snapshot answer nil; only the
// guard raises, as for every player member.
REALpicture SnapshotPicture(REALobject self, RBInteger width, RBInteger height) {
    GUARD_TFH(HandleOf(self, VLCMediaPlayerQRVClass), "SnapshotPicture", libvlc_video_take_snapshot, nullptr);
    if (width < 1 || height < 1 || width > kLargestSide || height > kLargestSide) return nullptr;
    TemporarySnapshotFile file;
    if (file.path().empty()) return nullptr;
    auto* player = reinterpret_cast<libvlc_media_player_t*>(HandleOf(self, VLCMediaPlayerQRVClass));
    int failed = vlcfn::_libvlc_video_take_snapshot(player, 0, file.path().c_str(), static_cast<unsigned>(width),
                                                    static_cast<unsigned>(height));
    TRACEF("%d", "take_snapshot", failed);
    if (failed != 0) return nullptr;
    size_t rowBytes = static_cast<size_t>(width) * 4;
    std::unique_ptr<uint8_t[]> pixels(new (std::nothrow) uint8_t[rowBytes * static_cast<size_t>(height)]);
    if (!pixels || !PlatformDecodePNGFile(file.path().c_str(), pixels.get(), width, height)) return nullptr;
    PictureWriter writer(width, height);
    if (writer.picture == nullptr) return nullptr;
    int64_t columns = std::min(width, writer.geometry.width);  // a host may give less than asked
    for (int64_t y = 0; y < height; ++y)
        if (auto* row = reinterpret_cast<uint32_t*>(writer.GetRow(y)))
            WritePictureRow(writer.geometry.layout, row, pixels.get() + static_cast<size_t>(y) * rowBytes, columns);
    REALpicture picture = writer.RenderPictureWriter();
    TRACEF("%p", "result picture", static_cast<void*>(picture));
    return picture;
}
