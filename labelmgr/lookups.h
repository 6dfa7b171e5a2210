#pragma once

#include <cstdint>
#include <string>

// A module of the running kernel, loaded or not; "-" and "_" are the same. Throws OperationError for an
// unknown one.
uint64_t kernelModuleOid(const std::string& name);

// A device node, by its path or its name in /dev. Throws OperationError for anything else.
uint64_t deviceOid(const std::string& name);
