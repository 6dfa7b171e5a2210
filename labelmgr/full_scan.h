#pragma once

#include <string>
#include <vector>

// Labels the root, a directory, and everything below it with derived labels; the skipped paths and policy's
// [exclude] and all below them are left alone. One bad file is one error line and does not stop the rest. A
// file system without attributes is one warning. Progress goes to standard error while that is a terminal; a
// summary is logged at the end. Answers the number of files that could not be labelled. Throws OperationError
// when it could not begin or end.
unsigned long labelWholeTree(const std::string& root, const std::vector<std::string>& skippedPaths);

// 0 never, 1 running, 2 complete, 3 interrupted.
int wholeTreeStatus();
