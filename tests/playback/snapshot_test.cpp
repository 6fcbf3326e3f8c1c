// SnapshotPicture on Debian's libvlc 3.0: the quadrants sample as gd and platform
// pictures at its own size and another, else nil, and never a file left behind.
#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "tests/support/test_support.h"

namespace {

using emu::Host;
using emu::HostOptions;
using emu::PictureKind;
using emu::Value;
using namespace std::chrono_literals;

// quadrants.mp4 scaled to width x height: red, green, blue, white; a black border.
uint32_t Quadrant(int x, int y, int width, int height) {
    const uint32_t colours[] = {0xFFFF0000u, 0xFF00FF00u, 0xFF0000FFu, 0xFFFFFFFFu};
    return colours[(2 * y >= height) * 2 + (2 * x >= width)];
}

// The first pixel off its quadrant's colour by more than `tolerance` in a byte,
// away from the border and the quadrants' edges, which scaling blurs.
std::string FirstWrong(Host& host, const Value& picture, int width, int height, int tolerance) {
    int marginX = width / 16 + 1, marginY = height / 12 + 1;
    for (int y = marginY; y < height - marginY; ++y)
        for (int x = marginX; x < width - marginX; ++x) {
            if (std::abs(2 * x - width) < 2 * marginX || std::abs(2 * y - height) < 2 * marginY) continue;
            uint32_t got = host.PixelARGB(picture, x, y), want = Quadrant(x, y, width, height);
            for (int shift = 0; shift < 32; shift += 8)
                if (std::abs(int(got >> shift & 0xFF) - int(want >> shift & 0xFF)) > tolerance) {
                    char where[64];
                    snprintf(where, sizeof where, "(%d, %d) is %u", x, y, got);
                    return where;
                }
        }
    return "";
}

// Opaque up to its last row and column, nothing beyond (PixelARGB answers 0 outside).
bool HasSize(Host& host, const Value& picture, int width, int height) {
    return host.PixelARGB(picture, width - 1, height - 1) >> 24 == 0xFF && host.PixelARGB(picture, width, 0) == 0 &&
           host.PixelARGB(picture, 0, height) == 0;
}

class Snapshot : public ::testing::Test {
protected:
    void SetUp() override {
        folder = std::filesystem::temp_directory_path() / ("qrv-snapshots-" + std::to_string(getpid()));
        std::filesystem::create_directories(folder);
        setenv("TMPDIR", folder.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("TMPDIR");
        std::filesystem::remove_all(folder);
    }
    size_t FilesLeft() const {
        return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
    }
    Value Take(Host& host, const Value& player, int64_t width, int64_t height) {
        return host.Call(player, "SnapshotPicture", {Value::Int(width), Value::Int(height)});
    }
    std::filesystem::path folder;
};

// The frame callbacks for the platform's own pictures, the dummy video output for gd ones. No video, a size below 1
// or no temporary folder answer nil.
TEST_F(Snapshot, QuadrantsAtTheirOwnSizeAndAnotherOnEitherKindOfPictureElseNil) {
    std::vector<PictureKind> kinds = {emu::NativePictureKind()};
    if (kinds[0] == PictureKind::Cairo) kinds.push_back(PictureKind::Gd);  // gd pictures are the Linux host's only
    for (PictureKind kind : kinds) {
        HostOptions options;
        options.pictures = kind;
        Host host(options);
        ASSERT_TRUE(qrvtest::LoadRealLibvlc(host));
        Value media =
            host.CallShared("VLCMediaQRV", "MediaWithPath",
                            {qrvtest::HeadlessInstance(host), host.String(qrvtest::SamplePath("quadrants.mp4"))});
        Value player = host.New("VLCMediaPlayerQRV", {media});
        if (kind != PictureKind::Gd) host.Call(player, "VideoSetCallback", {Value::Int(64), Value::Int(48)});
        EXPECT_TRUE(Take(host, player, 64, 48).IsNil()) << "no video yet";
        ASSERT_TRUE(host.Call(player, "Play").AsBool());
        Value own;
        EXPECT_TRUE(host.PumpUntil(
            [&] {
                EXPECT_EQ(FilesLeft(), 0u);
                own = Take(host, player, 64, 48);
                return !own.IsNil();
            },
            10s));
        Value other = Take(host, player, 100, 30);
        for (auto [width, height] : {std::pair<int64_t, int64_t>{0, 48}, {64, -1}})
            EXPECT_TRUE(Take(host, player, width, height).IsNil()) << width << " x " << height;
        setenv("TMPDIR", (folder / "missing").c_str(), 1);
        EXPECT_TRUE(Take(host, player, 64, 48).IsNil()) << "no temporary folder";
        setenv("TMPDIR", folder.c_str(), 1);
        host.Call(player, "Stop");
        ASSERT_FALSE(own.IsNil());
        ASSERT_FALSE(other.IsNil());
        EXPECT_EQ(host.PictureKindOf(own), kind);
        EXPECT_TRUE(HasSize(host, own, 64, 48));
        EXPECT_TRUE(HasSize(host, other, 100, 30));
        EXPECT_EQ(FirstWrong(host, own, 64, 48, 8), "");
        EXPECT_EQ(FirstWrong(host, other, 100, 30, 8), "");
        EXPECT_EQ(FilesLeft(), 0u);
        EXPECT_TRUE(host.raisedLog.empty()) << "raised " << host.raisedLog.front().message;
    }
}

}  // namespace
