// qrvhost: drives the plug-in as the host would, from the command line.
//   qrvhost describe                 every registered class and member
//   qrvhost info [--libvlc PATH]     libvlc's version and the functions it lacks
//   qrvhost play ...                 see qrvhost_play.cpp
#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "binding/vlc_table.h"
#include "host/emulator.h"
#include "host/qrvhost.h"

namespace {

int Usage() {
    fprintf(stderr,
            "usage: qrvhost describe\n"
            "       qrvhost info [--libvlc PATH]\n"
            "       qrvhost play [FILE] [--libvlc PATH] [--seconds N] [--png DIR] [--every N] [--trace] [--events]\n");
    return 2;
}

int Describe() {
    emu::Host host;
    fputs(host.Describe().c_str(), stdout);
    return 0;
}

// The libvlc functions the plug-in binds, by name, and the majors each holds for.
struct Function {
    const char* name;
    unsigned majors;
};
const Function kFunctions[] = {
#define X(name, majors, ret, params) {#name, vlcfn::majors},
#include "binding/functions.def"
#undef X
};

int Info(const std::vector<std::string>& args) {
    std::string libvlc = "libvlc.so.5";
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--libvlc" && i + 1 < args.size())
            libvlc = args[++i];
        else
            return Usage();
    }
    emu::Host host;
    emu::Value loaded = host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String(libvlc)});
    printf("libvlc:     %s\n", libvlc.c_str());
    printf("loaded:     %s\n", loaded.AsBool() ? "yes" : "no");
    emu::Value error = host.CallShared("VLCInstanceQRV", "GetLoadError");
    if (!loaded.AsBool()) {
        fprintf(stderr, "qrvhost: cannot load %s: %s\n", libvlc.c_str(), host.Text(error).c_str());
        return 1;
    }
    std::string version = host.Text(host.CallShared("VLCInstanceQRV", "GetVersion"));
    int major = vlcfn::MajorOfVersion(version.c_str());
    printf("version:    %s\n", version.c_str());
    printf("major:      %d\n", major);
    printf("compiler:   %s\n", host.Text(host.CallShared("VLCInstanceQRV", "GetCompiler")).c_str());
    printf("changeset:  %s\n", host.Text(host.CallShared("VLCInstanceQRV", "GetChangeset")).c_str());
    if (!error.IsNil()) printf("load error: %s\n", host.Text(error).c_str());

    void* library = dlopen(libvlc.c_str(), RTLD_NOW);
    std::vector<const char*> missing, unbound;
    for (const Function& f : kFunctions)
        if (library == nullptr || dlsym(library, f.name) == nullptr)
            missing.push_back(f.name);
        else if (!vlcfn::HoldsFor(f.majors, major))
            unbound.push_back(f.name);
    printf("missing:    %zu of %zu functions\n", missing.size(), std::size(kFunctions));
    for (const char* name : missing) printf("  %s\n", name);
    printf("unbound:    %zu of %zu functions, whose contract differs in libvlc %d\n", unbound.size(),
           std::size(kFunctions), major);
    for (const char* name : unbound) printf("  %s\n", name);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return Usage();
    std::string command = argv[1];
    std::vector<std::string> args(argv + 2, argv + argc);
    try {
        if (command == "describe" && args.empty()) return Describe();
        if (command == "info") return Info(args);
        if (command == "play") return Play(args);
    } catch (const std::exception& e) {
        fprintf(stderr, "qrvhost: %s\n", e.what());
        return 1;
    }
    return Usage();
}
