// The parts of the label manager that look at texts alone.
#include <sys/sysmacros.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "labelmgr/files/mount_table.h"
#include "labelmgr/model/message_text.h"
#include "labelmgr/policy/package_answers.h"
#include "labelmgr/policy/policy_file.h"
#include "labelmgr/store/pending_table.h"
#include "labelmgr/store/state_directory.h"
#include "tests/support/captured_log.h"
#include "tests/support/table.h"

using testing::ElementsAre;
using testing::Pair;
using testing::UnorderedElementsAre;

TEST(PackageAnswers, NameTheSmallestOwner) {
    constexpr const char* kTable = R"(
# answer | owner
coreutils: /usr/bin/ls                                       | coreutils
libc6:amd64, libc6:i386, a-lib:i386: /lib                    | a-lib
diversion by dash from: /bin/sh\ndash: /bin/sh               | dash
diversion by dash to: /bin/sh.distrib                        |
zz: /x\nb+1.2~x: /x                                          | b+1.2~x
-f: /x                                                       |
no colon and blank                                           |
                                                             |
)";
    for (const Lines& row : readTable(kTable, 2)) {
        EXPECT_EQ(parseOwner(split(row[0], "\n")), row[1]) << row[0];
    }
    EXPECT_THAT(parseInstalled({"installed a", "config-files b", "installedc", "installed d"}),
                ElementsAre("a", "d"));
}

TEST(PackageAnswers, ListTheOwnersOfPaths) {
    const Lines lines = {"\tb",           " /usr/share/x", " /bin/y",     " .",          "\ta",
                         " /usr/share/x", " /opt/z",       "junk",        " /usr/bin/w", " /bin/w",
                         "\tA",           " /bin/w",       "normal /lib", "replaced /a"};
    const OwnerTable owners(parseOwners(lines));
    constexpr const char* kTable = R"(
# path | owner
/usr/share/x | a
/bin/y       | b
/usr/bin/y   | b
/bin/w       | A
/usr/bin/w   | a
/usr/lib     | A
/usr/opt/z   |
/usr/share   |
/a           |
/zz/a        |
/            |
)";
    for (const Lines& row : readTable(kTable, 2)) {
        const size_t slash = row[0].rfind('/');
        const OwnedNames names = owners.namesIn(slash == 0 ? "/" : row[0].substr(0, slash));
        EXPECT_EQ(names.ownerOf(row[0].substr(slash + 1)), row[1]) << row[0];
    }
    EXPECT_EQ(asDpkgPattern("/a*b?[c]\\"), "/a\\*b\\?\\[c]\\\\");
    for (const char* bad : {"", "*", "-x", "a b", "a/b", "a:b", "a\n"}) {
        EXPECT_FALSE(isPackageName(bad)) << bad;
    }
}

TEST(PolicyFile, HoldsTheLongestPatternAndOfEqualOnesTheSmaller) {
    CapturedLog log;
    const Policy policy = policyOf({{"tid",
                                     {{"/a*", "1"},
                                      {"/a/b*", "0x2"},
                                      {"/a/?x", "3"},
                                      {"/a/bx", "4"},
                                      {"/a*x", "5"},
                                      {"/bad", "1g"},
                                      {"/big", "100000000"}}},
                                    {"inherit_flag", {{"/5", "5"}, {"/7", "7"}, {"/0", "0"}, {"/6", "6"}}},
                                    {"exclude", {{"/out*", ""}}}},
                                   "policy");
    EXPECT_THAT(log.take(),
                UnorderedElementsAre("ERROR [readRules] policy: [tid] /bad: bad value '1g'",
                                     "ERROR [readRules] policy: [tid] /big: bad value '100000000'",
                                     "ERROR [readRules] policy: [inherit_flag] /6: bad value '6'"));
    for (const auto& [path, tid] : std::map<std::string, uint32_t>{
             {"/a", 1}, {"/a/b", 2}, {"/a/cx", 3}, {"/a/bx", 3}, {"/a/b/x", 2}, {"/acx", 5}, {"/b", 0}}) {
        EXPECT_EQ(policy.tid(path), tid) << path;
    }
    EXPECT_EQ(policy.inheritFlag("/5") * 100 + policy.inheritFlag("/7") * 10 + policy.inheritFlag("/6"),
              570U);
    EXPECT_EQ(policy.excluded.size(), 1U);
}

TEST(Mounts, TellKindsByDevice) {
    const std::string table =
        "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
        "23 22 0:21 / /proc rw - proc proc rw\n"
        "24 22 0:40 / /home/u/a\\040-\\040b rw,nosuid master:3 - fuse.sshfs u@h: rw\n"
        "25 22 0:41 / /n rw - nfs4 server:/n rw\n"
        "26 22 0:x / /m rw - nfs4 server:/n rw\n27 22 0:43 / /no-separator\n";
    EXPECT_THAT(parseMounts(table), ElementsAre(Pair(makedev(0, 21), FileSystemKind::kPseudo),
                                                Pair(makedev(0, 40), FileSystemKind::kRemote),
                                                Pair(makedev(0, 41), FileSystemKind::kRemote),
                                                Pair(makedev(8, 1), FileSystemKind::kLocal)));
}

TEST(Locks, NameTheHolderAndNotWhoWaits) {
    const std::string locks =
        "1: POSIX  ADVISORY  WRITE 11 08:01:77 0 EOF\n2: -> FLOCK  ADVISORY  WRITE 12 08:01:77 0 EOF\n"
        "3: FLOCK  ADVISORY  WRITE 13 08:01:177 0 EOF\n4: FLOCK  ADVISORY  WRITE 14 08:01:77 0 EOF\n"
        "5: FLOCK  ADVISORY  WRITE 15 08:1a:77 0 EOF\n";
    EXPECT_EQ(lockHolder(locks, makedev(8, 1), 77), 14);
    EXPECT_EQ(lockHolder(locks, makedev(8, 26), 77), 15);
    EXPECT_EQ(lockHolder(locks, makedev(8, 1), 7), 0);
}

TEST(Messages, KeepTheirWordsApart) {
    EXPECT_EQ(changeMessage("file", "set_tid", "/a b\\c\n\x7f\xc3\xa4", "1"),
              "file set_tid /a\\040b\\134c\\012\\177\xc3\xa4 1");
}

// The form that stands in stores: what differs from the file before, and from the former
// label.
TEST(PendingFiles, StandAsTheirDifferences) {
    const std::vector<PendingFile> files = {
        {"/d/a1.c", 0x801, 300, "LABEL", "LAXEL"},
        {"/d/b.c", 0x801, 301, std::nullopt, "N"},
        {"/d/b.c.c", dev_t(-1), ino_t(-1), "", ""},
        {"/d/b.c", 7, 0, std::string(200, 'x'), std::string(199, 'x')},
    };
    const std::string bytes = packFiles(toKeep(files));
    using std::string_literals::operator""s;
    EXPECT_EQ(bytes.substr(0, 44),
              "\2\0\0\7/d/a1.c\x81\x10\xAC\2\1\0\0\5LABEL\2\2\1X"s
              "\3\2\1b\0\1\0\0\0\1N"s
              "\6\0\2.c"s);
    EXPECT_EQ(unpackFiles(bytes), files);
    for (const std::string& bad : {""s, "\0"s, bytes.substr(0, bytes.size() - 1), "\2\1\0\0"s, "\2\0\1\0"s,
                                   "\2\0\0\0"s + std::string(9, '\xff') + "\2"}) {
        EXPECT_THROW(unpackFiles(bad), OperationError) << bad;
    }
}
