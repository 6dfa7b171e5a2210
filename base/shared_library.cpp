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

void* SharedLibrary::address(const char* function) {
    if (void* own = dlsym(RTLD_DEFAULT, function)) {
        return own;
    }
    if (handle == nullptr) {
        handle = required(dlopen(soname, RTLD_NOW | RTLD_LOCAL));
    }
    return required(dlsym(handle, function));
}
