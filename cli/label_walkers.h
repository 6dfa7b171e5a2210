#pragma once

#include <functional>
#include <string>

// Whole labels of files: the callbacks that show or remove one, and the walkers that
// bring files to them. Nothing that happens to a single file stops a walk or changes the
// exit status; the walkers do not look at a callback's result.

// Answers 1 when it did its work on the file, 0 when it printed why not.
using FileCallback = std::function<int(const std::string& path, const std::string& attributeName)>;

int showLabel(const std::string& path, const std::string& attributeName);
int removeLabel(const std::string& path, const std::string& attributeName);

// Expands a glob pattern, with a leading tilde, and calls the callback for each match in
// sorted order, or walks the match when it is a directory and `recursive` is set. What
// does not exist is reported on standard error.
void walkPattern(const std::string& pattern, const std::string& attributeName, const FileCallback& callback,
                 bool recursive);

// Calls the callback for the directory and then, depth first and in directory order, for
// everything below it. Links are never followed. A directory that cannot be read is one
// line on standard output.
void walkDirectory(const std::string& path, const std::string& attributeName, const FileCallback& callback);
