#pragma once

#include <functional>
#include <string>

#include "cli/walked_file.h"

// Whole labels of files: the callbacks that show or remove one, and the walkers that
// bring files to them. Nothing that happens to a single file stops a walk or changes the
// exit status; the walkers do not look at a callback's result.

// Answers 1 when it did its work on the file, 0 when it printed why not. A callable that
// takes the path alone will do, too.
using FileCallback = std::function<int(const WalkedFile& file, const std::string& attributeName)>;

int showLabel(const WalkedFile& file, const std::string& attributeName);
int removeLabel(const WalkedFile& file, const std::string& attributeName);

// Expands a glob pattern, with a leading tilde, and calls the callback for each match in
// sorted order, or walks the match when it is a directory and `recursive` is set. What
// does not exist is reported on standard error.
void walkPattern(const std::string& pattern, const std::string& attributeName, const FileCallback& callback,
                 bool recursive);

// Calls the callback for the directory and then, depth first and in directory order, for
// everything below it. What the path names is looked up by it, links included; below it
// the walk goes by descriptors and never follows a link to a directory, whatever is
// exchanged meanwhile. A directory that cannot be read, or that lies on a network or FUSE
// file system within the tree ("Object is remote"), or whose path is longer than the
// system takes, is one line on standard output and left alone.
void walkDirectory(const std::string& path, const std::string& attributeName, const FileCallback& callback);
