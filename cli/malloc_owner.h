#pragma once

#include <cstdlib>
#include <memory>

// Memory that the label manager answers, released with free.
struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};
template <typename T>
using MallocOwner = std::unique_ptr<T, FreeMemory>;
