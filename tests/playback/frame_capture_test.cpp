// Frame capture through the fake libvlc's video thread (a per-pixel pattern) and Debian's libvlc 3.0 on quadrants.mp4.
#include <cairo.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/fakevlc/fakevlc_control.h"
#include "tests/support/test_support.h"

namespace {

using namespace emu;
using namespace qrvtest;
using namespace std::chrono_literals;

// Pixel (x, y) as 0xAARRGGBB: from memory, an RV32 or ARGB32 pixel (B, G, R, X) as a little-endian word, | `alpha`.
using Image = std::function<uint32_t(int x, int y)>;

Image Rows(const uint8_t* first, int64_t rowBytes, uint32_t alpha = 0) {
    return [=](int x, int y) {
        uint32_t word;
        memcpy(&word, first + y * rowBytes + 4 * x, 4);
        return word | alpha;
    };
}

// The first pixel where a byte of `got` is more than `tolerance` off `want`'s, or "" when none is.
std::string FirstWrong(int width, int height, const Image& got, const Image& want, int tolerance = 0) {
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int shift = 0; shift < 32; shift += 8)
                if (std::abs(int(got(x, y) >> shift & 0xFF) - int(want(x, y) >> shift & 0xFF)) > tolerance) {
                    char where[80];
                    snprintf(where, sizeof where, "(%d, %d) has %u, not %u", x, y, got(x, y), want(x, y));
                    return where;
                }
    return "";
}

// Frame `frame` of the fake's pattern, as its bytes lie in memory.
Image Pattern(int64_t frame, uint32_t alpha = 0) {
    return [=](int x, int y) {
        uint32_t word = 0;
        for (int c = 3; c >= 0; --c) word = word << 8 | fakevlc_pattern(x, y, frame, c);
        return word | alpha;
    };
}

constexpr uint32_t kOpaque = 0xFF000000u;

// CopyToMemory into padded rows, CopyMemory, CopyPicture and the drawn surface against `want`.
void ExpectEveryCopy(Host& host, const Value& player, int width, int height, cairo_surface_t* drawn, const Image& want,
                     int tolerance) {
    int64_t rowBytes = 4 * width + 44;
    std::vector<uint8_t> rows(8 + rowBytes * height);
    Value to = Value::Pointer(rows.data());
    ASSERT_TRUE(host.Call(player, "CopyToMemory", {to, Value::Int(8), Value::Int(rowBytes)}).AsBool());
    EXPECT_EQ(FirstWrong(width, height, Rows(rows.data() + 8, rowBytes, kOpaque), want, tolerance), "");
    std::vector<uint8_t> block = host.MemoryBytes(host.Call(player, "CopyMemory"));
    ASSERT_EQ(block.size(), 4u * width * height);
    EXPECT_EQ(FirstWrong(width, height, Rows(block.data(), 4 * width, kOpaque), want, tolerance), "");
    int clears = host.clearCacheCalls;
    Value picture = host.Call(player, "CopyPicture");
    ASSERT_EQ(host.PictureKindOf(picture), host.options().pictures);
    EXPECT_EQ(host.clearCacheCalls, clears + 1);
    Image inPicture = [&](int x, int y) { return host.PixelARGB(picture, x, y); };
    EXPECT_EQ(FirstWrong(width, height, inPicture, want, tolerance), "");
    cairo_surface_flush(drawn);
    Image surface = Rows(cairo_image_surface_get_data(drawn), cairo_image_surface_get_stride(drawn));
    EXPECT_EQ(FirstWrong(width, height, surface, want, tolerance), "") << "drawn context";
}

const char kNoBuffer[] = "Failed to allocate 0 bytes of memory for picture buffer.";

class Capture : public ::testing::Test {
protected:
    void Start(HostOptions options = {}) {
        player = vlc = Value();
        host.reset();
        host = std::make_unique<Host>(options);
        ASSERT_TRUE(fake.Loaded());
        fake.reset();
        ASSERT_TRUE(fake.LoadInto(*host));
        vlc = host->New("VLCInstanceQRV", {host->StringArray({})});
        player = host->New("VLCMediaPlayerQRV", {vlc});
        ASSERT_NE(host->Get(player, "Handle").AsInt(), 0);
    }
    void SetUp() override { Start(); }
    // The byte the host reads: True is 1.
    int64_t HasNewFrame() { return host->Get(player, "HasNewFrame").AsInt(); }
    void SetCallback(int64_t width, int64_t height, int64_t context = 0) {
        host->Call(player, "VideoSetCallback", {Value::Int(width), Value::Int(height), Value::Int(context)});
    }
    uint8_t* Memory() { return static_cast<uint8_t*>(host->Call(player, "GetMemory").AsPtr()); }

    FakeVLC fake;
    std::unique_ptr<Host> host;
    Value vlc, player;
};

TEST_F(Capture, FramesLandInTheBufferEveryReadClearsTheFlagAndCopiesCheckArguments) {
    EXPECT_EQ(Memory(), nullptr);
    EXPECT_TRUE(host->Call(player, "CopyMemory").IsNil());
    SetCallback(40, 30);
    ASSERT_TRUE(NothingRaised(*host));
    EXPECT_EQ(fake.Text("libvlc_video_set_format.chroma"), "RV32");
    EXPECT_EQ(HasNewFrame(), 0);
    ASSERT_EQ(fake.renderFrame(1), 1);
    EXPECT_EQ(HasNewFrame(), 1);
    ASSERT_NE(Memory(), nullptr);
    EXPECT_EQ(FirstWrong(40, 30, Rows(Memory(), 160), Pattern(1)), "");
    EXPECT_EQ(HasNewFrame(), 0);

    fake.renderFrame(2);
    EXPECT_EQ(HasNewFrame(), 1);
    std::vector<uint8_t> bytes = host->MemoryBytes(host->Call(player, "CopyMemory"));
    ASSERT_EQ(bytes.size(), 40u * 30 * 4);
    EXPECT_EQ(FirstWrong(40, 30, Rows(bytes.data(), 160), Pattern(2)), "");
    EXPECT_EQ(HasNewFrame(), 0);

    SetCallback(640, 3);
    fake.renderFrame(3);
    std::vector<uint8_t> dest(16 + 4096 * 3, 0);
    auto copy = [&](void* to, int64_t offset, int64_t rowBytes) {
        return host->Call(player, "CopyToMemory", {Value::Pointer(to), Value::Int(offset), Value::Int(rowBytes)})
            .AsBool();
    };
    EXPECT_FALSE(copy(dest.data(), 0, 2559));
    EXPECT_FALSE(copy(dest.data(), -1, 4096));
    EXPECT_FALSE(copy(nullptr, 0, 4096));
    EXPECT_TRUE(Raised(*host, "NilObjectException", "dest parameter is nil"));
    EXPECT_EQ(HasNewFrame(), 1) << "refused copies leave the flag";
    EXPECT_TRUE(copy(dest.data(), 16, 4096));
    EXPECT_EQ(HasNewFrame(), 0);
    EXPECT_EQ(FirstWrong(640, 3, Rows(dest.data() + 16, 4096), Pattern(3)), "");
    for (size_t i : {size_t{0}, size_t{15}, size_t{16 + 2560}, size_t{16 + 4095}, size_t{16 + 4096 + 2560}})
        EXPECT_EQ(dest[i], 0) << "byte " << i << " lies outside the rows";
    // Rows back to back.
    std::fill(dest.begin(), dest.end(), 0);
    fake.renderFrame(4);
    EXPECT_TRUE(copy(dest.data(), 16, 2560));
    EXPECT_EQ(FirstWrong(640, 3, Rows(dest.data() + 16, 2560), Pattern(4)), "");
    EXPECT_EQ(dest[16 + 3 * 2560], 0) << "nothing past the last row";
}

TEST_F(Capture, AFailedOrResizingCallSetupKeepsTheDecoderInsideItsBuffer) {
    SetCallback(0, 480);
    EXPECT_TRUE(Raised(*host, "OutOfMemoryException", kNoBuffer));
    EXPECT_EQ(Memory(), nullptr);
    EXPECT_EQ(fake.calls("libvlc_video_set_callbacks"), 0);

    SetCallback(64, 48);
    fake.vout(1);  // playback: the output keeps 64 x 48
    SetCallback(0, 48);
    EXPECT_TRUE(Raised(*host, "OutOfMemoryException", kNoBuffer));
    EXPECT_EQ(fake.renderFrame(4), 1) << "the failed call left the buffer libvlc writes into";
    SetCallback(32, 16);
    EXPECT_EQ(fake.renderFrame(5), 1) << "a smaller size while the output runs";
    fake.vout(0);
    EXPECT_EQ(fake.renderFrame(6), 1);
    ASSERT_NE(Memory(), nullptr);
    EXPECT_EQ(FirstWrong(32, 16, Rows(Memory(), 128), Pattern(6)), "") << "the next output uses the new size";
    SetCallback(8, 2);
    EXPECT_EQ(FirstWrong(8, 2, Rows(Memory(), 32), [](int, int) { return 0u; }), "") << "zero-filled";

    SetCallback(INT32_MAX / 4, INT32_MAX);  // within every limit, but no allocator gives 4.6 EB
    EXPECT_TRUE(Raised(*host, "OutOfMemoryException",
                       "Failed to allocate 4611686007689969668 bytes of memory for picture buffer."));
    EXPECT_EQ(FirstWrong(8, 2, Rows(Memory(), 32), [](int, int) { return 0u; }), "") << "the frame state stays";
    // One pixel wide is a frame; a side past 32767 is too long for a picture.
    for (auto [width, height, fits] :
         {std::tuple{40000, 1, false}, {32767, 1, true}, {1, 32768, false}, {1, 32767, true}}) {
        SetCallback(width, height);
        EXPECT_TRUE(NothingRaised(*host));
        EXPECT_EQ(host->Call(player, "CopyPicture").IsNil(), !fits) << width << " x " << height;
    }
    EXPECT_TRUE(host->Call(player, "CopyCGImage").IsNil()) << "no image class here";
}

// A host picture shorter than the frame gets only its own rows, quietly; too small a memory block raises.
TEST_F(Capture, AHostGivingLessThanAskedIsNotWrittenPast) {
    Start({.memoryBlocksShort = true, .picturesShort = true});
    SetCallback(4, 6);
    fake.renderFrame(1);
    StderrCapture capture;
    Value picture = host->Call(player, "CopyPicture");
    EXPECT_EQ(capture.Finish(), "");
    ASSERT_FALSE(picture.IsNil());
    EXPECT_EQ(FirstWrong(
                  4, 3, [&](int x, int y) { return host->PixelARGB(picture, x, y); }, Pattern(1, kOpaque)),
              "");
    EXPECT_TRUE(host->Call(player, "CopyMemory").IsNil());
    EXPECT_TRUE(Raised(*host, "OutOfMemoryException", "Failed to allocate a memoryblock with 96 bytes in size."));
}

// While the decoder holds a frame (lock to unlock), every reader waits.
TEST_F(Capture, ReadersWaitForTheFrameTheDecoderHolds) {
    SetCallback(16, 16);
    SetCallback(16, 16);  // the mutex outlives reconfiguration
    fake.renderFrame(1);
    auto waited = [&](const std::function<void()>& read) {
        std::thread decoder(fake.holdFrame, 400);
        std::this_thread::sleep_for(100ms);
        auto start = std::chrono::steady_clock::now();
        read();
        decoder.join();
        return std::chrono::steady_clock::now() - start;
    };
    EXPECT_GE(waited([&] { host->Call(player, "CopyMemory"); }), 200ms);
    EXPECT_GE(waited([&] { HasNewFrame(); }), 200ms);
    EXPECT_GE(waited([&] { host->Call(player, "CopyPicture"); }), 200ms);
}

// Pictures of either kind (cairo's ARGB32 is native-endian, as gd's colours), the cairo
// context the player paints into, and the gd picture's fields traced in turn.
TEST_F(Capture, PicturesAndTheDrawnContextPixelByPixel) {
    std::string trace;
    for (PictureKind kind : {PictureKind::Cairo, PictureKind::Gd}) {
        Start({.pictures = kind});
        cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 24, 10);
        cairo_t* context = cairo_create(surface);
        SetCallback(24, 10, reinterpret_cast<int64_t>(context));
        cairo_destroy(context);  // the player keeps its own reference
        fake.renderFrame(7);
        host->SetShared("VLCInstanceQRV", "Debugging", Value::Bool(true));
        StderrCapture capture;
        ExpectEveryCopy(*host, player, 24, 10, surface, Pattern(7, kOpaque), 0);
        trace = capture.Finish();
        host->SetShared("VLCInstanceQRV", "Debugging", Value::Bool(false));
        EXPECT_FALSE(HasNewFrame());
        player = Value();  // the destructor gives the context back
        cairo_surface_destroy(surface);
    }
    size_t at = 0;
    for (const char* line : {"GetPictureEditorGDImagePtr\n", "REALLockPictureDescription with pictureGDImagePtr ok.\n",
                             "gdImagePtr handle 0x", "pixels ", "sx 24\n", "sy 10\n", "colorsTotal 0\n",
                             "trueColor 1\n", "tpixels 0x", "alphaBlendingFlag ", "base 0x"}) {
        at = trace.find(std::string("\nQRV Debug: ") + line, at);
        ASSERT_NE(at, std::string::npos) << line << " after the lines before it in\n" << trace;
    }
}

// Booleans and signed chars are libvlc's low byte; integers narrow to int, Booleans go as 0 or 1; title positions
// outside libvlc's table raise.
TEST_F(Capture, LowByteAnswersNarrowedArgumentsAndTitlePositions) {
    fake.setInt("libvlc_media_player_is_seekable", 256);
    fake.setInt("libvlc_media_player_has_vout", 200);
    fake.setInt("libvlc_media_player_play", -1);
    host->Set(player, "Mute", Value::Bool(true));
    host->Set(player, "Volume", Value::Int(-1));
    ExpectAnswers(*host, player,
                  {{"get IsSeekable", 0}, {"get HasVOut", -56}, {"Play", 0}, {"get Mute", 1}, {"get Volume", -1}});
    EXPECT_EQ(fake.integer("libvlc_audio_set_mute.status"), 1);
    host->Call(player, "VideoSetMouseInput", {Value::Bool(true)});
    host->Call(player, "VideoSetKeyInput", {Value::Bool(true)});
    EXPECT_EQ(fake.integer("libvlc_video_set_mouse_input.on") * 10 + fake.integer("libvlc_video_set_key_input.on"), 11);
    fake.setInt("libvlc_media_player_has_vout", 300);
    host->Set(player, "Volume", Value::Int((int64_t{1} << 32) + 40));
    EXPECT_EQ(fake.integer("libvlc_audio_set_volume.volume"), 40);
    ExpectAnswers(*host, player, {{"get HasVOut", 44}, {"get Volume", 40}});
    host->Call(player, "SetEqualizer");
    EXPECT_EQ(fake.calls("libvlc_media_player_set_equalizer"), 1);
    std::vector<Value> cursor = {Value::Int(0), Value::Ref(Value::Int(0)), Value::Ref(Value::Int(0))};
    EXPECT_TRUE(host->Call(player, "VideoGetCursor", cursor).AsBool());
    fake.setInt("libvlc_video_get_cursor", -1);
    EXPECT_FALSE(host->Call(player, "VideoGetCursor", cursor).AsBool()) << "libvlc's -1 is a failure";
    libvlc_audio_output_device_t device{nullptr, const_cast<char*>("hw:1"), const_cast<char*>("Card")};
    fake.setPtr("libvlc_audio_output_device_enum", &device);
    EXPECT_EQ(host->Text(host->Get(host->Get(player, "AudioOutputDevices"), "Device")), "hw:1");
    EXPECT_EQ(fake.calls("libvlc_audio_output_device_list_release"), 1);
    host->Call(player, "VideoSetDeinterlace", {host->String("blend")});
    EXPECT_EQ(fake.Text("libvlc_video_set_deinterlace.mode"), "blend");
    host->Call(player, "VideoSetDeinterlace", {Value()});
    EXPECT_EQ(fake.Text("libvlc_video_set_deinterlace.mode"), "(null)") << "nil switches deinterlacing off";
    // A side beyond the largest picture never reaches libvlc, which would make the whole image first.
    for (auto [width, height] : {std::pair<int64_t, int64_t>{40000, 48}, {64, 40000}})
        EXPECT_TRUE(host->Call(player, "SnapshotPicture", {Value::Int(width), Value::Int(height)}).IsNil());
    EXPECT_EQ(fake.calls("libvlc_video_take_snapshot"), 0);
    fake.setInt("libvlc_video_take_snapshot", -1);
    EXPECT_TRUE(host->Call(player, "SnapshotPicture", {Value::Int(32767), Value::Int(32767)}).IsNil());
    EXPECT_EQ(fake.calls("libvlc_video_take_snapshot"), 1) << "the largest picture is still asked for";
    EXPECT_TRUE(NothingRaised(*host));

    for (int64_t position : {int64_t{1} << 31, int64_t{9}, int64_t{-2}}) {
        host->Call(player, "SetVideoTitleDisplay", {Value::Int(position), Value::Int(0)});
        EXPECT_EQ(host->exception->className, "OutOfBoundsException") << position;
    }
    EXPECT_EQ(fake.calls("libvlc_media_player_set_video_title_display"), 0);
    host->Call(player, "SetVideoTitleDisplay", {Value::Int(-1), Value::Int(0)});
    host->Call(player, "SetVideoTitleDisplay", {Value::Int(8), Value::Int(0)});
    EXPECT_TRUE(NothingRaised(*host));
    EXPECT_EQ(fake.calls("libvlc_media_player_set_video_title_display"), 2);
}

TEST_F(Capture, ListPlayerModeItemsAndPlayerReferences) {
    Value listPlayer = host->New("VLCMediaListPlayerQRV", {vlc});
    host->Call(listPlayer, "SetPlaybackMode", {Value::Int(7)});
    EXPECT_EQ(fake.integer("libvlc_media_list_player_set_playback_mode.mode"), 7);
    // libvlc would read the missing list.
    Value media = host->CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host->String("/x.mp4")});
    EXPECT_FALSE(host->Call(listPlayer, "PlayItemAtIndex", {Value::Int(0)}).AsBool());
    EXPECT_TRUE(Raised(*host, "NilObjectException", "List is nil"));
    EXPECT_FALSE(host->Call(listPlayer, "PlayItem", {media}).AsBool());
    EXPECT_TRUE(Raised(*host, "NilObjectException", "List is nil"));
    EXPECT_EQ(fake.calls("libvlc_media_list_player_play_item_at_index"), 0);
    EXPECT_EQ(fake.calls("libvlc_media_list_player_play_item"), 0);
    Value other = host->New("VLCMediaPlayerQRV", {vlc});
    int64_t locks = host->LockCount(player);
    host->Call(listPlayer, "SetMediaPlayer", {player});
    host->Call(listPlayer, "SetMediaPlayer", {other});
    EXPECT_EQ(host->Get(listPlayer, "Player").AsObject(), other.AsObject());
    EXPECT_EQ(host->LockCount(player), locks) << "the player replaced is given back";
    host->Call(listPlayer, "SetMediaList", {host->NewRaw("VLCMediaListQRV")});
    EXPECT_TRUE(Raised(*host, "NilObjectException", "List is nil"));
    EXPECT_TRUE(host->Get(listPlayer, "List").IsNil());
}

// quadrants.mp4, 64 x 48: red, green, blue and white quadrants inside a black border.
uint32_t Quadrants(int x, int y) {
    if (x == 0 || y == 0 || x == 63 || y == 47) return 0xFF000000u;
    const uint32_t colours[] = {0xFFFF0000u, 0xFF00FF00u, 0xFF0000FFu, 0xFFFFFFFFu};
    return colours[(y >= 24) * 2 + (x >= 32)];
}

// Decoded pixels, within the codec's rounding, through every copy and either kind of picture.
TEST(RealCapture, DecodedQuadrantsPixelByPixelInEveryCopy) {
    for (PictureKind kind : {PictureKind::Gd, PictureKind::Cairo}) {
        Host host({.pictures = kind});
        ASSERT_TRUE(LoadRealLibvlc(host));
        Value media = host.CallShared("VLCMediaQRV", "MediaWithPath",
                                      {HeadlessInstance(host), host.String(SamplePath("quadrants.mp4"))});
        Value player = host.New("VLCMediaPlayerQRV", {media});
        cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 64, 48);
        cairo_t* context = cairo_create(surface);
        host.Call(player, "VideoSetCallback",
                  {Value::Int(64), Value::Int(48), Value::Int(reinterpret_cast<int64_t>(context))});
        cairo_destroy(context);
        ASSERT_TRUE(host.Call(player, "Play").AsBool());
        ASSERT_TRUE(host.PumpUntil([&] { return host.Get(player, "HasNewFrame").AsBool(); }, 30000ms));
        host.PumpFor(200ms);
        host.Call(player, "Stop");
        ExpectEveryCopy(host, player, 64, 48, surface, Quadrants, 8);
        player = media = Value();
        cairo_surface_destroy(surface);
    }
}

// While capturing into 64 x 48, formats that would take libvlc past the buffer (larger, wider rows, more planes) are
// refused; each is played all the same, so one let through crashes or trips a sanitizer. Fitting BGRA and RGBA arrive.
TEST(RealCapture, VideoSetFormatKeepsLibvlcInsideTheBuffer) {
    Host host;
    ASSERT_TRUE(LoadRealLibvlc(host));
    Value player = host.New("VLCMediaPlayerQRV",
                            {host.CallShared("VLCMediaQRV", "MediaWithPath",
                                             {HeadlessInstance(host), host.String(SamplePath("quadrants.mp4"))})});
    host.Call(player, "VideoSetCallback", {Value::Int(64), Value::Int(48)});
    for (auto [chroma, width, pitch] : {std::tuple{"RV32", 640u, 2560u},
                                        {"RV32", 64u, 4096u},
                                        {"I420", 64u, 64u},
                                        {"BGRA", 64u, 256u},
                                        {"RGBA", 64u, 256u}}) {
        host.Call(player, "VideoSetFormat",
                  {host.String(chroma), Value::UInt(width), Value::UInt(width * 3 / 4), Value::UInt(pitch)});
        EXPECT_EQ(host.exception ? host.exception->className : "", pitch == 256 ? "" : "OutOfBoundsException")
            << chroma << " " << pitch;
        host.Set(player, "HasNewFrame", Value::Bool(false));
        ASSERT_TRUE(host.Call(player, "Play").AsBool());
        ASSERT_TRUE(host.PumpUntil([&] { return host.Get(player, "HasNewFrame").AsBool(); }, 30000ms));
        host.Call(player, "Stop");
    }
    const auto* red = static_cast<const uint8_t*>(host.Call(player, "GetMemory").AsPtr()) + (12 * 64 + 16) * 4;
    EXPECT_TRUE(red[0] > 0xF0 && red[2] < 0x10) << "RGBA puts red first";
}

}  // namespace
