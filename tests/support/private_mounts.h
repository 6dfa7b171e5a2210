#pragma once

// Mounts that only this process and its children see, so that tests use the fixed paths
// freely and the host keeps none of it: /etc is a copy, /var/log is empty but for zorv/
// and the directory that temporary trees are made in. The label manager's store and
// policy are pointed there as well. Everything goes with the last process. Only root can
// do this.
void enterPrivateMounts();

constexpr const char* kScratchDirectory = "/var/log/scratch";
