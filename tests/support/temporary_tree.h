#pragma once

#include <string>
#include <string_view>
#include <vector>

// Mounts that only this process and its children see, so that tests use the fixed paths
// freely: /etc is a copy whose zorv/label/ is empty, /var/log is empty but for zorv/ and
// the directory of temporary trees, where the label manager's store and policy are looked
// for, too. For root only.
void enterPrivateMounts();
constexpr const char* kScratchDirectory = "/var/log/scratch";

// A directory of its own for one test, removed with everything in it. Names are relative
// to it; parents are made as needed, but for a link; every function answers the absolute
// path. A failure is an exception, which fails the test.
class TemporaryTree {
 public:
    TemporaryTree();
    ~TemporaryTree();

    std::string path(std::string_view name = "") const {
        return root + (name.empty() ? "" : "/") + std::string(name);
    }
    std::string directory(std::string_view name) const;
    std::string file(std::string_view name, std::string_view content = "") const;
    std::string link(std::string_view name, std::string_view target) const;

 private:
    std::string root;
};

void require(bool done, const std::string& what = "a promise");

void putFile(const std::string& path, std::string_view content);
std::string fileContent(const std::string& path);

std::vector<unsigned char> fromHexadecimal(std::string_view digits);

// The attribute "security.zorv" of a file, or of a link itself, as hexadecimal digits;
// "none" when absent.
std::string labelAttribute(const std::string& path);
void setLabelAttribute(const std::string& path, std::string_view hexadecimal);
