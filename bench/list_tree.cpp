#include <cstdio>

#include "common/directory_traversal.h"

// Prints what traverseDirectory() finds, for the comparison of whole processes.
int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: list_tree ROOT\n", stderr);
        return 2;
    }
    std::vector<std::string> paths;
    const int status = traverseDirectory(argv[1], paths);
    for (const std::string& path : paths) {
        std::printf("%s\n", path.c_str());
    }
    return status == 0 ? 0 : 1;
}
