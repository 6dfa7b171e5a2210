#include <cstdio>

#include <common/wildcard.h>
#include <label/label.h>

int main(int argc, char** argv) {
    if (argc != 2 || !isPatternSafe(argv[1])) {
        std::fputs("usage: labels PATTERN\n", stderr);
        return 2;
    }
    int unlabelled = 0;
    for (const std::string& path : searchFilesByPattern(argv[1])) {
        Label label;
        if (label.getFromXattr(path, false) == 0) {
            std::printf("%s %s\n", path.c_str(), label.toString().c_str());
        } else {
            ++unlabelled;  // or unreadable, and then the log says why
        }
    }
    return unlabelled == 0 ? 0 : 1;
}
