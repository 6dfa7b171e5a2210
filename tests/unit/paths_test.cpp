#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/directory_traversal.h"
#include "common/path_resolution.h"
#include "tests/support/captured_log.h"
#include "tests/support/run.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

namespace fs = std::filesystem;
using testing::ElementsAre;

// What happens to a file at once after it was looked at.
static std::function<void(std::string name)> afterLook = [](auto) {};

extern "C" int fstatat(int directory, const char* name, struct stat* status, int flags) noexcept {
    static const auto next = reinterpret_cast<decltype(&fstatat)>(dlsym(RTLD_NEXT, "fstatat"));
    const int result = next(directory, name, status, flags);
    afterLook(name);
    return result;
}

TEST(PathResolution, ResolvesExistingPaths) {
    constexpr const char* kTable = R"(
# function: getRealPath, getLinkRealPath, findFirstValidParentDir | path, @ the tree | result | log
R | @/x/../x/./file   | @/data/file |
R |                   |             | WARN [getRealPath] path is empty
R | @/x/link          |             | WARN [getRealPath] file is not exists, @/x/link
R | @/loop            |             | ERROR [getRealPath] Resolve realpath failed for @/loop: filesystem error: %[@/loop]
L | @/x/link          | @/data/link |
L | @/x/link/         |             | WARN [getRealPath] file is not exists, @/x/link
L | name              |             | WARN [getRealPath] path is empty
L |                   |             |
F | @/data//*.conf    | @/data      |
F | @/x///            | @/x         |
F | //                | /           |
F | @/dat?/x          | @           |
F | @/data/file*      | @/data      |
F | @/da[ta/x*        | @/da[ta     |
F | @/loop/*          |             | ERROR [findFirstValidParentDir] filesystem error: filesystem error: %[@/loop/]
)";
    const TemporaryTree tree;
    tree.file("data/file");
    tree.directory("da[ta");
    tree.link("x", "data");
    tree.link("data/link", "../nowhere");
    tree.link("loop", "loop");
    const std::map<std::string, std::string (*)(const std::string&)> functions = {
        {"R", getRealPath}, {"L", getLinkRealPath}, {"F", findFirstValidParentDir}};
    CapturedLog log;
    const std::string reason = "status: Too many levels of symbolic links ";
    const std::string table = replaceAll(replaceAll(kTable, "@", tree.path()), "%", reason);
    for (const Lines& row : readTable(table, 4)) {
        EXPECT_EQ(functions.at(row[0])(row[1]), row[2]) << row[0] << row[1];
        EXPECT_EQ(log.take(), Lines(row[3].empty() ? 0 : 1, row[3])) << row[0] << row[1];
    }
    EXPECT_FALSE(isFilesystemReadOnly(tree.path().c_str()) || isFilesystemReadOnly("/none"));
    EXPECT_EQ(log.take(),
              Lines{"ERROR [isFilesystemReadOnly] statfs error, No such file or directory, /none"});
    ASSERT_EQ(mount("test", tree.path().c_str(), "tmpfs", MS_RDONLY, nullptr), 0);
    EXPECT_TRUE(isFilesystemReadOnly(tree.path().c_str()));
    umount(tree.path().c_str());
}

TEST(PathResolution, ComparesAndTidiesTexts) {
    constexpr const char* kTable = R"(
# a path | the one that it is a parent of | the one that it is not | tidied
/       | /etc      |       | /
/a/b    | /a/b/../c | /a/bc | /a/b
///a//* | ///a//*/b | /a//* | /a
/*      | /*/x      | /b    | /
/a/**   | /a/**/    | /a    | /a/**
*       | */x       | *     | *
)";
    for (const Lines& row : readTable(kTable, 4)) {
        EXPECT_TRUE(isParentPath(row[0], row[1])) << row[0];
        EXPECT_FALSE(isParentPath(row[0], row[2])) << row[0];
        EXPECT_EQ(formatPath(row[0]), row[3]);
    }
    EXPECT_FALSE(isParentPath("", "/a") || isParentPath("/a", "") || !formatPath("").empty());
    fs::current_path("/");
    const Lines ordered = {"", "/", "/\xC3\xA9", "/A", "/a", "/a/", "a/\xFF", "/a/b", "aa", "/b", "/\x7F"};
    EXPECT_EQ(sortPaths({ordered.rbegin(), ordered.rend()}), ordered);
    EXPECT_TRUE(std::is_sorted(ordered.begin(), ordered.end(), comparePaths));
    EXPECT_FALSE(comparePaths("/a", "/a"));
}

TEST(SortPaths, ExpandsStarsAndOrdersAnyPaths) {
    const TemporaryTree tree;
    const std::string hidden = tree.file("a/.x");
    const std::string x1 = tree.file("a/x1");
    const std::string x2 = tree.file("a/\\x2");
    EXPECT_THAT(sortPaths({"/zz", tree.path("a/*x*"), x2, tree.path("a/no*"), tree.path("*/x1")}),
                ElementsAre(tree.path("*/x1"), hidden, x2, x2, x1, "/zz"));
    EXPECT_THAT(expandPath(tree.path("a/\\[x]2")), ElementsAre(x2));
    EXPECT_THROW(sortPaths({"/a", tree.path("none/*")}), fs::filesystem_error);
    EXPECT_TRUE(holdsInChild([&] {
        fs::current_path(tree.directory("gone"));
        return rmdir(tree.path("gone").c_str()) == 0 && !isParentPath("a", "a/b") &&
               sortPaths({"b", "/", "a"}) == Lines{"/", "a", "b"};
    }));
}

TEST(TraverseDirectory, ListsBreadthFirst) {
    const TemporaryTree tree;
    tree.file("root/file");
    tree.file("root/d/e/file");
    tree.file("root/z/y/file");
    tree.link("root/d/link", "e");
    const std::string alias = tree.link("alias", "root");
    const std::string covered = tree.file("root/d/1");  // reads as a file in the directory
    ASSERT_EQ(mount("/dev/null", covered.c_str(), nullptr, MS_BIND, nullptr), 0);
    Lines found = {"kept"};
    EXPECT_EQ(traverseDirectory(tree.path("//alias/"), found), 0);
    umount(covered.c_str());
    const auto at = [&](const char* name) {
        return std::find(found.begin(), found.end(), alias + name) - found.begin();
    };
    EXPECT_TRUE(found.size() == 10 && at("") == 1 && at("/file") == 2 && at("/d/link") == at("/d") + 1);
    EXPECT_TRUE(at("/d") < at("/z/y") && at("/z") < at("/d/e") && at("/z/y/file") == at("/z/y") + 1 &&
                at("/d/e/file") < 10);
}

TEST(TraverseDirectory, FollowsNoLinkThatTookADirectorysPlace) {
    const TemporaryTree tree;
    tree.file("outside/file");
    tree.directory("root/d");
    afterLook = [&](const std::string& name) {
        if (name == "d" && fs::remove(tree.path("root/d"))) {
            tree.link("root/d", "../outside");
        }
    };
    CapturedLog log;
    Lines found;
    EXPECT_EQ(traverseDirectory(tree.path("root"), found), 0);
    afterLook = [](auto) {};
    EXPECT_EQ(found, Lines{tree.path("root")});
    EXPECT_EQ(log.take(), Lines{"ERROR [traverseDirectory] Failed to open directory: " + tree.path("root/d") +
                                ", error: Not a directory"});
}

TEST(TraverseDirectory, SaysWhatItCannotUse) {
    const TemporaryTree tree;
    const std::string file = tree.file("listed/file");
    const std::string closed = tree.directory("closed");
    const std::string longest(4096, 'a');
    const std::string tag = "ERROR [traverseDirectory] ";
    CapturedLog log;
    Lines found;
    EXPECT_EQ(traverseDirectory(longest, found), -1);
    EXPECT_EQ(traverseDirectory(longest + "a", found), -1);
    EXPECT_EQ(traverseDirectory(file, found), -1);
    EXPECT_EQ(log.take(), (Lines{tag + "Directory does not exist: " + longest + ", error: File name too long",
                                 tag + "Path too long: " + longest + "a", tag + "Not a directory: " + file}));
    chmod(tree.path().c_str(), 0755);
    chmod(closed.c_str(), 0);
    chmod(tree.path("listed").c_str(), 0744);  // may be read and not searched
    ASSERT_EQ(seteuid(65534), 0);
    EXPECT_EQ(traverseDirectory(tree.path(), found), 0);
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(found, (Lines{tree.path(), tree.path("listed")}));
    const std::string denied = ", error: Permission denied";
    EXPECT_THAT(log.take(),
                testing::UnorderedElementsAre(tag + "Failed to open directory: " + closed + denied,
                                              tag + "Failed to stat path: " + file + denied));
}

TEST(TraverseDirectory, StopsAtTheLimitsOfPathsAndDirectories) {
    const TemporaryTree tree;
    CapturedLog log;
    const std::string name(250, 'n');
    EXPECT_TRUE(holdsInChild([&] {
        fs::current_path(tree.path());
        for (int depth = 0; depth < 20; ++depth) {
            fs::create_directory(name);
            fs::current_path(name);
        }
        return true;
    }));
    Lines found;
    EXPECT_EQ(traverseDirectory(tree.path(), found), 0);
    EXPECT_EQ(found.back().size(), tree.path().size() + 16 * 251);
    EXPECT_EQ(log.take(), Lines{"ERROR [traverseDirectory] Failed to stat path: " + found.back() + '/' +
                                name + ", error: File name too long"});
    for (int i = 0; i < 100000; ++i) {
        tree.directory(std::to_string(i));
    }
    found.clear();
    EXPECT_EQ(traverseDirectory(tree.path(), found), 0);
    EXPECT_EQ(found.size(), 100000U);
    EXPECT_EQ(log.take(), Lines{"ERROR [traverseDirectory] Reached maximum directory limit: 100000"});
}
