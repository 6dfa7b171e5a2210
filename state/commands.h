#pragma once

#include "state/options.h"

// The program's commands. Each answers its exit status and prints its result; failures
// throw.
Status runApply(const Options& options);
Status runBackup(const Options& options);
Status runCheckPolicy(const Options& options);
Status runExplain(const Options& options);
Status runExport(const Options& options);
Status runLabel(const Options& options);
Status runRemovePattern(const Options& options);
Status runRestore(const Options& options);
Status runVerify(const Options& options);
