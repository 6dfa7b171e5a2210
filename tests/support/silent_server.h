#pragma once

#include <string>

#include "base/handles.h"

// A FUSE file system over a file or a directory whose server says hello and nothing more.
// When the object goes, whoever still waits for an answer gets an error.
class SilentServer {
 public:
    explicit SilentServer(std::string where);
    ~SilentServer();
    SilentServer(const SilentServer&) = delete;
    SilentServer& operator=(const SilentServer&) = delete;

 private:
    std::string mountPoint;
    UniqueFd device;
};
