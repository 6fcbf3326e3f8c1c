// The libvlc function list: its size, order rules, types, and what Debian's
// libvlc 3.0 offers of it.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "binding/vlc_table.h"

// libvlc 3.0's headers no longer declare these; the list keeps their old signatures.
extern "C" {
int libvlc_vlm_get_media_instance_title(libvlc_instance_t*, const char*, int);
int libvlc_vlm_get_media_instance_chapter(libvlc_instance_t*, const char*, int);
int libvlc_vlm_get_media_instance_seekable(libvlc_instance_t*, const char*, int);
}

namespace {

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

// Every function the 3.0 headers still declare has exactly the header's type.
#define X(name, ret, params) static_assert(std::is_same_v<decltype(&::name), vlcfn::name##_t>, #name);
#include "binding/functions.def"
#undef X

std::vector<std::string> Names() {
    std::vector<std::string> names;
    for (size_t i = 0; i < vlcfn::kEntryCount; ++i) names.emplace_back(vlcfn::kEntries[i].name);
    return names;
}

size_t IndexOf(const std::vector<std::string>& names, const std::string& name) {
    return static_cast<size_t>(std::find(names.begin(), names.end(), name) - names.begin());
}

TEST(FunctionTable, ListsEachOf254FunctionsOnceInLookupOrder) {
    std::vector<std::string> names = Names();
    ASSERT_EQ(names.size(), 254u);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), 254u);
    EXPECT_EQ(names.front(), "libvlc_media_subitems");
    EXPECT_EQ(names[1], "libvlc_vlm_release");
    EXPECT_EQ(names[24], "libvlc_vlm_get_event_manager");
    EXPECT_EQ(names[25], "libvlc_errmsg");
    EXPECT_EQ(names.back(), "libvlc_log_set_file");
    EXPECT_EQ(names[names.size() - 5], "libvlc_log_get_context");
    // Later additions come after the families they extend.
    EXPECT_GT(IndexOf(names, "libvlc_set_exit_handler"), IndexOf(names, "libvlc_media_discoverer_is_running"));
    EXPECT_LT(IndexOf(names, "libvlc_audio_equalizer_get_preset_count"),
              IndexOf(names, "libvlc_media_player_set_equalizer"));
    EXPECT_LT(IndexOf(names, "libvlc_media_tracks_release"), IndexOf(names, "libvlc_set_app_id"));
    for (size_t i = 0; i < vlcfn::kEntryCount; ++i) EXPECT_NE(vlcfn::kEntries[i].slot, nullptr);
}

TEST(FunctionTable, DebianLibvlc30LacksExactlyFourFunctions) {
    void* library = dlopen("libvlc.so.5", RTLD_NOW);
    ASSERT_NE(library, nullptr) << dlerror();
    std::vector<std::string> missing;
    for (const std::string& name : Names())
        if (dlsym(library, name.c_str()) == nullptr) missing.push_back(name);
    std::sort(missing.begin(), missing.end());
    EXPECT_EQ(missing, (std::vector<std::string>{
                           "libvlc_media_list_add_file_content", "libvlc_vlm_get_media_instance_chapter",
                           "libvlc_vlm_get_media_instance_seekable", "libvlc_vlm_get_media_instance_title"}));
}

}  // namespace
