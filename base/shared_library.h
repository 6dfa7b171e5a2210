#pragma once

#include <cstdint>

// A library that is loaded when it is first needed, so that the programs that never need
// it do not pay for it at their start. Otherwise it is as if it had been linked: its name
// is the one that a link would have recorded (see CMakeLists.txt) and is looked for in
// the same places, and a function that the program or one of its preloaded or linked
// libraries defines is taken in place of the library's. When they define all of them, the
// library is not loaded at all.
//
// The owner of a library derives from this class, lists the functions as members and is a
// static variable of a function: the first use loads, in one thread while others wait,
// and a use after a failure tries again. A note in the ELF file names the library to
// those who make packages and images.
//
//     ZORV_LOADED_LIBRARY_NOTE("sums", "Sums of angles", LIBM_SONAME);
//
//     struct Maths : SharedLibrary {
//         Maths() : SharedLibrary(LIBM_SONAME) {}
//         ZORV_LIBRARY_FUNCTION(cos);
//     };
class SharedLibrary {
 public:
    SharedLibrary(const SharedLibrary&) = delete;
    SharedLibrary& operator=(const SharedLibrary&) = delete;

 protected:
    explicit SharedLibrary(const char* name) : soname(name) {}
    ~SharedLibrary() = default;

    // Throws std::runtime_error with the loader's reason, which names the library and,
    // once that is loaded, the function. What is loaded stays, since its threads and exit
    // handlers may outlive any owner.
    template <typename Pointer>
    Pointer find(const char* function) {
        return reinterpret_cast<Pointer>(address(function));
    }

 private:
    void* address(const char* function);

    const char* soname;
    void* handle = nullptr;
};

// A member of the owner: the function of that name, with the type that the library's
// header declares. Linkers export a program's own definition only of a name that one of
// its libraries refers to. The assembly does so, weakly.
#define ZORV_LIBRARY_FUNCTION(name)                  \
    /* NOLINTNEXTLINE(bugprone-macro-parentheses) */ \
    const decltype(&::name) name = [this] {          \
        asm(".weak " #name : : "r"(&::name));        \
        return this->find<decltype(&::name)>(#name); \
    }()

// The layout of a dlopen metadata note, which system tools read.
template <uint32_t textSize>
struct LoadedLibraryNote {
    uint32_t ownerSize = sizeof(owner);
    uint32_t contentSize = textSize;
    uint32_t type = 0x407c0c0a;
    char owner[4] = {'F', 'D', 'O', '\0'};
    char text[textSize];
};

// In the namespace of a source's internals, once a source. (An aggregate: a constructed
// object would be put where it can be written.)
#define ZORV_LOADED_LIBRARY_NOTE(feature, description, soname)                                  \
    [[gnu::used, gnu::section(".note.dlopen")]] alignas(                                        \
        4) constexpr LoadedLibraryNote<sizeof(ZORV_LIBRARY_JSON(feature, description, soname))> \
        loadedLibraryNote = {.text = ZORV_LIBRARY_JSON(feature, description, soname)}
#define ZORV_LIBRARY_JSON(feature, description, soname)            \
    "[{\"feature\":\"" feature "\",\"description\":\"" description \
    "\",\"priority\":\"recommended\",\"soname\":[\"" soname "\"]}]"
