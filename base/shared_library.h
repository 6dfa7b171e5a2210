#pragma once

// A library that is loaded when it is first needed, so that the programs that never need
// it do not pay for it at their start. The name comes from the build (see
// CMakeLists.txt), so that it is the one that a link would have recorded; it is looked
// for as the libraries of a link are.
//
// The owner of a library derives from this class, lists the functions as members and is a
// static variable of a function: the first use loads, in one thread while others wait,
// and a use after a failure tries again.
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
    // Throws std::runtime_error with the loader's reason, which names the library. What
    // is loaded stays, since its threads and exit handlers may outlive any owner.
    explicit SharedLibrary(const char* soname);
    ~SharedLibrary() = default;

    // Throws std::runtime_error with the loader's reason, which names the library and the
    // function.
    template <typename Pointer>
    Pointer find(const char* name) const {
        return reinterpret_cast<Pointer>(address(name));
    }

 private:
    void* address(const char* name) const;

    void* handle;
};

// A member of the owner: the function of that name, with the type that the library's
// header declares.
// NOLINTNEXTLINE(bugprone-macro-parentheses): what is declared is a name
#define ZORV_LIBRARY_FUNCTION(name) const decltype(&::name) name = find<decltype(&::name)>(#name)
