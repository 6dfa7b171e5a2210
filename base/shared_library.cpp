#include "base/shared_library.h"

#include <stdexcept>

#include <dlfcn.h>

namespace {

void* required(void* found) {
    if (found == nullptr) {
        const char* reason = dlerror();
        throw std::runtime_error(reason != nullptr ? reason : "no reason given by the loader");
    }
    return found;
}

}  // namespace

SharedLibrary::SharedLibrary(const char* soname) : handle(required(dlopen(soname, RTLD_NOW | RTLD_LOCAL))) {}

void* SharedLibrary::address(const char* name) const {
    return required(dlsym(handle, name));
}
