#pragma once

#include "labelmgr/store.h"

// This process, and whether a process that was recorded is still the one that runs under its id.
ProcessIdentity thisProcess();
bool isAlive(const ProcessIdentity& process);
