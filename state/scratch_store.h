#pragma once

#include <string>

// A directory for a store that nobody else uses; gone with the object.
class ScratchStore {
 public:
    // Throws OperationError.
    ScratchStore();
    ~ScratchStore();
    ScratchStore(const ScratchStore&) = delete;
    ScratchStore& operator=(const ScratchStore&) = delete;

    const std::string& directory() const { return path; }

 private:
    std::string path;
};
