#pragma once

#include <cstdint>
#include <string>

#include "cli/label_manager.h"

// The TID as the label manager reads it; 0xdead when it fails.
inline uint32_t tidOf(const std::string& path) {
    uint32_t tid = 0xdead;
    return getFileTid(path.c_str(), &tid) == 0 ? tid : 0xdead;
}
