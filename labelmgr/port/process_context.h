#pragma once

#include "labelmgr/model/context.h"

// The context of an operation of the port: the defaults, and what the environment says
// otherwise (ZORV_LABEL_STATE_DIR, ZORV_LABEL_POLICY_FILE, PATH). In a program that runs
// with more privilege than its caller the environment says nothing, and reaches nobody
// else.
Context processContext();

// ZORV_LABEL_THREADS, else one a core, 8 at most. A bad number is a warning in the log.
unsigned int scanThreads();
