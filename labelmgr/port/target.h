#pragma once

#include <string>

#include "labelmgr/model/user_value.h"

// What an argument of the port names, with links resolved: a file that must be there, one
// that may be gone, or with patternMatch a pattern. Throws OperationError.
Target targetOfFile(Field field, const char* path, int patternMatch);
Target targetOfRecord(Field field, const char* path, int patternMatch);
