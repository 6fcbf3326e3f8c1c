// The host emulator: loading a private copy of the plug-in, the class
// registry, test subclasses, faults, the audit and the listing of members.
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "host/emulator_internal.h"

#ifndef QRV_PLUGIN_PATH
#define QRV_PLUGIN_PATH ""
#endif
#ifndef QRV_SOURCE_DIR
#define QRV_SOURCE_DIR "."
#endif

namespace emu {

namespace {
Host* gCurrent = nullptr;

void AbortOnFault(const std::string& message) {
    fprintf(stderr, "host emulator: plug-in fault: %s\n", message.c_str());
    abort();
}
FaultHandler gFaultHandler = AbortOnFault;
}  // namespace

void SetFaultHandler(FaultHandler handler) { gFaultHandler = handler ? handler : AbortOnFault; }
void Fault(const std::string& message) { gFaultHandler(message); }

std::string DefaultPluginPath() {
    if (const char* path = getenv("QRV_PLUGIN")) return path;
    return QRV_PLUGIN_PATH;
}

std::string SourceDir() { return QRV_SOURCE_DIR; }

Host* Host::Current() { return gCurrent; }
Host::Impl& State() { return gCurrent->impl(); }
void* Host::Resolve(const char* entryName) { return ResolveEntry(entryName); }

// ---- Host --------------------------------------------------------------------

namespace {

ClassInfo* AddBuiltin(Host::Impl& state, const std::string& name, const std::string& super) {
    auto* cls = new ClassInfo;
    cls->name = name;
    cls->superName = super;
    cls->builtin = true;
    if (!super.empty()) cls->super = state.classes[super];
    state.classes[name] = cls;
    return cls;
}

// Each host gets a private copy of the plug-in, so its process-wide state
// (resolver caches, function table, switches) starts fresh.
void* LoadPrivateCopy(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read plug-in " + path);
    char name[] = "/tmp/qrvhost-plugin-XXXXXX.so";
    int fd = mkstemps(name, 3);
    if (fd < 0) throw std::runtime_error("cannot make a temporary copy of the plug-in");
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ssize_t written = write(fd, bytes.data(), bytes.size());
    close(fd);
    if (written != static_cast<ssize_t>(bytes.size())) throw std::runtime_error("cannot copy the plug-in");
    void* library = dlopen(name, RTLD_NOW | RTLD_LOCAL);
    // Sanitizer reports need the file to symbolise the plug-in's frames.
    const char* keep = getenv("QRVHOST_KEEP_PLUGIN_COPY");
    if (keep == nullptr || *keep == '\0') unlink(name);
    if (library == nullptr) throw std::runtime_error(std::string("dlopen: ") + dlerror());
    return library;
}

}  // namespace

Host::Host(HostOptions options) : options_(std::move(options)), impl_(std::make_unique<Impl>()) {
    if (gCurrent != nullptr) throw std::logic_error("only one emu::Host may be alive");
    gCurrent = this;
    if (options_.pluginPath.empty()) options_.pluginPath = DefaultPluginPath();
    Impl& state = *impl_;
    AddBuiltin(state, "Object", "");
    AddBuiltin(state, "RuntimeException", "");
    for (const char* name :
         {"NilObjectException", "OutOfBoundsException", "OutOfMemoryException", "UnsupportedOperationException"})
        AddBuiltin(state, name, "RuntimeException");
    AddBuiltin(state, "MemoryBlock", "");
    AddBuiltin(state, "FolderItem", "");
    AddBuiltin(state, "Picture", "");
    if (options_.imageClass) {
        ClassInfo* image = AddBuiltin(state, "CGImageQRV", "");
        image->fieldsBegin = kImageField;
        image->fieldsEnd = kImageObjectSize;
    }
    try {
        impl_->library = LoadPrivateCopy(options_.pluginPath);
    } catch (...) {
        gCurrent = nullptr;
        throw;
    }
    if (options_.callMain) CallPluginMain();
}

void Host::CallPluginMain() {
    auto main = reinterpret_cast<PluginMainFn>(dlsym(impl_->library, "REALPluginMain"));
    if (main == nullptr) throw std::runtime_error("the plug-in does not export REALPluginMain");
    main(&ResolveEntry);
}

Host::Impl::~Impl() {
    for (auto& [name, cls] : classes) delete cls;
    for (auto& [token, entry] : tokens) delete[] entry.indirection;
}

namespace {

// The plug-in copy's writable segments: its globals.
std::vector<std::pair<const void*, size_t>> PluginGlobals(void* library) {
    struct Search {
        uintptr_t base;
        std::vector<std::pair<const void*, size_t>> found;
    } search{0, {}};
    link_map* map = nullptr;
    if (dlinfo(library, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr) return {};
    search.base = map->l_addr;
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void* data) {
            auto* s = static_cast<Search*>(data);
            if (info->dlpi_addr != s->base) return 0;
            for (int i = 0; i < info->dlpi_phnum; ++i) {
                const ElfW(Phdr)& h = info->dlpi_phdr[i];
                if (h.p_type == PT_LOAD && (h.p_flags & PF_W))
                    s->found.emplace_back(reinterpret_cast<const void*>(info->dlpi_addr + h.p_vaddr), h.p_memsz);
            }
            return 1;
        },
        &search);
    return search.found;
}

}  // namespace

// What the plug-in leaves behind is reported here. A real host never frees
// what a program still holds: objects and strings left locked when the host
// goes away stay in memory for the rest of the process.
Host::~Host() {
    if (impl_->raised) UnlockObject(impl_->raised);
    impl_->raised = nullptr;
    Audit leaked = Unreachable();
    if (leaked.objects + leaked.strings > 0 || leaked.pictureLocks != 0 || leaked.stringData != 0)
        Fault("the host went away with " + emu::Describe(leaked) + " that the plug-in no longer refers to");
    AbandonObjects(*impl_);
    ForgetStrings();
    gCurrent = nullptr;
}

const ClassInfo* Host::FindClass(std::string_view name) const {
    auto it = impl_->classes.find(name);
    return it == impl_->classes.end() ? nullptr : it->second;
}

std::vector<const ClassInfo*> Host::PluginClasses() const {
    return std::vector<const ClassInfo*>(impl_->pluginOrder.begin(), impl_->pluginOrder.end());
}

void Host::DefineSubclass(const std::string& name, const std::string& superName,
                          std::map<std::string, void*> handlers) {
    auto* cls = new ClassInfo;
    cls->name = name;
    cls->superName = superName;
    auto it = impl_->classes.find(superName);
    if (it == impl_->classes.end()) throw std::invalid_argument("unknown class " + superName);
    cls->super = it->second;
    cls->handlers = std::move(handlers);
    impl_->classes[name] = cls;
}

void Host::SetHandler(const std::string& className, const std::string& event, void* handler) {
    auto it = impl_->classes.find(className);
    if (it == impl_->classes.end()) throw std::invalid_argument("unknown class " + className);
    if (handler == nullptr)
        it->second->handlers.erase(event);
    else
        it->second->handlers[event] = handler;
}

// ---- audit -------------------------------------------------------------------

std::string Describe(const Audit& audit) {
    std::ostringstream out;
    out << audit.objects << " object(s), " << audit.strings << " string(s), " << audit.pictureLocks
        << " picture lock(s) and " << audit.stringData << " string data record(s)";
    for (const std::string& name : audit.objectClasses)
        out << (name == *audit.objectClasses.begin() ? " (" : ", ") << name;
    if (!audit.objectClasses.empty()) out << ")";
    return out.str();
}

size_t Host::LiveObjects() const { return impl_->objects.size(); }
size_t Host::LiveStrings() const { return impl_->strings.size(); }

int64_t Host::LockCount(const Value& value) const {
    if (value.AsString()) {
        HostString* s = CheckedString(value.AsString(), "Host::LockCount");
        return s ? s->refs : 0;
    }
    ObjectInfo* info = CheckedObject(value.AsObject(), "Host::LockCount");
    return info ? info->refs : 0;
}

Audit Host::Count() const {
    Audit audit;
    audit.objects = impl_->objects.size();
    audit.strings = impl_->strings.size();
    for (auto& [address, info] : impl_->objects) audit.pictureLocks += info->descriptionLocks;
    audit.stringData = impl_->stringData.size();
    return audit;
}

void Host::KeptByDesign(const Value& object) {
    if (CheckedObject(object.AsObject(), "Host::KeptByDesign")) impl_->keptByDesign.insert(object.AsObject());
}

Audit Host::Unreachable() const {
    std::vector<std::pair<const void*, size_t>> roots = PluginGlobals(impl_->library);
    for (const void* const& kept : impl_->keptByDesign) roots.emplace_back(&kept, sizeof kept);
    Audit audit = UnreachableFrom(*impl_, roots);
    Audit all = Count();
    audit.pictureLocks = all.pictureLocks;
    audit.stringData = all.stringData;
    return audit;
}

// ---- listing -----------------------------------------------------------------

std::string Host::Describe() const {
    std::ostringstream out;
    for (const ClassInfo* cls : impl_->pluginOrder) {
        const REALclassDefinition& r = *cls->record;
        out << "class " << cls->name << " super " << (cls->superName.empty() ? "-" : cls->superName) << "\n";
        auto property = [&](const REALproperty& p, const char* kind) {
            out << cls->name << " " << kind << " " << p.name << " as " << p.type
                << (p.setter == nullptr ? " [read-only]" : "") << "\n";
        };
        auto method = [&](const REALmethodDefinition& m, const char* kind) {
            out << cls->name << " " << kind << " " << m.declaration << (m.setterFunction ? " [assign]" : "") << "\n";
        };
        for (size_t i = 0; i < r.propertyCount; ++i) property(r.properties[i], "property");
        for (size_t i = 0; i < r.methodCount; ++i) method(r.methods[i], "method");
        for (size_t i = 0; i < r.eventCount; ++i) out << cls->name << " event " << r.events[i].declaration << "\n";
        for (size_t i = 0; i < r.constantCount; ++i)
            out << cls->name << " constant " << r.constants[i].declaration << "\n";
        for (size_t i = 0; i < r.sharedPropertyCount; ++i) property(r.sharedProperties[i], "shared-property");
        for (size_t i = 0; i < r.sharedMethodCount; ++i) method(r.sharedMethods[i], "shared-method");
    }
    return out.str();
}

}  // namespace emu
