#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

struct RunOptions {
    std::vector<std::pair<std::string, std::string>> environment = {};
    // Runs in the child just before the tool.
    std::function<void()> prepare = {};
    // Another program of the build than the tool, beside it.
    std::string program = "zorv-label-manager-tool";
};

struct RunResult {
    int status = 0;  // the exit status, or the negative number of the signal that ended it
    std::string out = {};
    std::string err = {};
    std::string calls = {};  // of the recording label manager, one a line
};

// The tool with the label manager library that it was linked with. Standard input is
// empty; argv[0] is the program's name.
RunResult runTool(const std::vector<std::string>& words, const RunOptions& options = {});

// The tool with the recording label manager, see fake_labelmgr.cpp.
RunResult runToolWithFake(const std::vector<std::string>& words, const std::string& script = "",
                          const RunOptions& options = {});

// A function in a child process; its answer is the exit status.
RunResult runInChild(const std::function<int()>& body);

// Whether it holds in a process of its own, which it may spoil.
bool holdsInChild(const std::function<bool()>& condition);
