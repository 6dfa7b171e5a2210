#include "tests/support/temporary_tree.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sched.h>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/xattr.h>

#include "label/label_binary.h"

void require(bool done, const std::string& what) {
    if (!done) {
        throw std::runtime_error("failed: " + what);
    }
}

void enterPrivateMounts() {
    require(unshare(CLONE_NEWNS) == 0, "a mount namespace, which only root can make");
    require(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
    require(mount("tests", "/var/log", "tmpfs", 0, "mode=755") == 0, "mount /var/log");
    require(std::system("cp -a /etc /var/log/etc && mount --bind /var/log/etc /etc") == 0, "mount /etc");
    std::filesystem::remove_all("/etc/zorv");  // of an installed package
    std::filesystem::create_directories("/etc/zorv/label");
    std::filesystem::create_directory("/var/log/zorv");
    std::filesystem::create_directory(kScratchDirectory);
    const std::string scratch = kScratchDirectory;
    setenv("ZORV_LABEL_STATE_DIR", (scratch + "/state").c_str(), 1);
    setenv("ZORV_LABEL_POLICY_FILE", (scratch + "/policy.conf").c_str(), 1);
}

TemporaryTree::TemporaryTree() : root(std::string(kScratchDirectory) + "/tree-XXXXXX") {
    require(mkdtemp(root.data()) != nullptr, root);
}

TemporaryTree::~TemporaryTree() {
    static_cast<void>(std::system(("rm -rf " + root).c_str()));  // however long the paths are
}

std::string TemporaryTree::directory(std::string_view name) const {
    std::filesystem::create_directories(path(name));
    return path(name);
}

std::string TemporaryTree::file(std::string_view name, std::string_view content) const {
    putFile(path(name), content);
    return path(name);
}

std::string TemporaryTree::link(std::string_view name, std::string_view target) const {
    std::filesystem::create_symlink(target, path(name));
    return path(name);
}

void putFile(const std::string& path, std::string_view content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    require((std::ofstream(path) << content << std::flush).good(), path);
}

std::string fileContent(const std::string& path) {
    std::ifstream in(path);
    require(in.is_open(), path);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<unsigned char> fromHexadecimal(std::string_view digits) {
    std::vector<unsigned char> value;
    for (size_t i = 0; i < digits.size(); i += 2) {
        value.push_back(static_cast<unsigned char>(std::stoi(std::string(digits.substr(i, 2)), nullptr, 16)));
    }
    return value;
}

std::string labelAttribute(const std::string& path) {
    std::array<unsigned char, 4096> value;
    const ssize_t size = lgetxattr(path.c_str(), "security.zorv", value.data(), value.size());
    return size < 0 ? "none" : bytesToHexString(value.data(), static_cast<unsigned long>(size));
}

void setLabelAttribute(const std::string& path, std::string_view hexadecimal) {
    const std::vector<unsigned char> value = fromHexadecimal(hexadecimal);
    require(lsetxattr(path.c_str(), "security.zorv", value.data(), value.size(), 0) == 0, path);
}
