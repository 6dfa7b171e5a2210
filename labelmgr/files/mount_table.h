#pragma once

#include "base/mounts.h"

// Of what is mounted now. Throws OperationError when the list cannot be read.
FileSystemKind kindOfDevice(dev_t device);
