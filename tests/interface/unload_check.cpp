// unload_check LIBRARY: a host that loads the library, uses it and lets go of it while its window is in the
// thread's loop. It stays, and the process ends in peace.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

void fail(const char* what) {
    std::fprintf(stderr, "%s\n", what);
    std::exit(1);
}

template <class Function>
Function find(void* library, const char* name) {
    void* const found = ::dlsym(library, name);
    if (found == nullptr) {
        fail(name);
    }
    Function function = nullptr;
    std::memcpy(&function, &found, sizeof function);
    return function;
}

}  // namespace

int main(int count, char** arguments) {
    const char* const path = count == 2 ? arguments[1] : "";
    void* const library = ::dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        fail(::dlerror());
    }
    const auto init = find<bool (*)()>(library, "_ZN3kro6tessel4http9http_initEv");
    const auto pump = find<bool (*)()>(library, "_ZN3kro6tessel12message_loop4pumpEv");
    if (!init()) {
        fail("http_init");
    }
    pump();
    ::dlclose(library);
    if (::dlopen(path, RTLD_NOW | RTLD_NOLOAD) == nullptr) {
        fail("the library was unloaded");
    }
    return pump() ? 1 : 0;  // its code is still there, and nothing waits
}
