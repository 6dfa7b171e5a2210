#include "state/scratch_store.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "labelmgr/model/operation_error.h"

ScratchStore::ScratchStore() : path(std::filesystem::temp_directory_path() / "zorv-label-state.XXXXXX") {
    if (mkdtemp(path.data()) == nullptr) {
        throw systemError(path);
    }
}

ScratchStore::~ScratchStore() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}
