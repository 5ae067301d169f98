#include "ui/UIBackendGtkLibrary_posix.h"

#include <dlfcn.h>

bool UILoadGTK() {
    // Never unloaded: GTK registers types and exit handlers that would dangle.
    static const bool loaded = [] {
        void* library = dlopen("libgtk-3.so.0", RTLD_NOW | RTLD_GLOBAL);
        if (library == nullptr) {
            return false;
        }
        bool complete = true;
        // A look-up by the library's handle also finds what the library itself stands on.
#define VELPATCH_GTK_FIND(name)                                                                    \
    GTK::name = reinterpret_cast<decltype(GTK::name)>(dlsym(library, #name));                      \
    complete = complete && GTK::name != nullptr;
        VELPATCH_GTK_FUNCTIONS(VELPATCH_GTK_FIND)
#undef VELPATCH_GTK_FIND
        return complete;
    }();
    return loaded;
}
