#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/path_safety.h"
#include "common/wildcard.h"
#include "tests/support/captured_log.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

using testing::ElementsAre;

namespace {

Lines accepted(const std::string& path) {
    const std::string passed = "DEBUG [isFilePathSafe] FilePathCheck passed: " + path;
    const std::string spaces = "WARN [isFilePathSafe] FilePathCheck: path contains spaces - " + path;
    return path.find(' ') == std::string::npos ? Lines{passed} : Lines{spaces, passed};
}

}  // namespace

TEST(PathSafety, NamesTheFirstRuleThatIsBroken) {
    constexpr const char* kTable = R"(
# permitted: symbolic links, wildcards, missing paths | logged as | reason, a dash before the path | paths, @ the tree
swm | isFilePathSafe         | not an absolute path -            | . a//b
swm | isFilePathSafe         | contains consecutive slashes -    | /a//b/../c //
swm | isFilePathSafe         | path traversal attack detected -  | /a/../b /.. /a/... /a/..b\x7C /a/b../c
swm | isFilePathSafe         | invalid root path -               | /. /.cache/x\x7C
swm | containsDangerousChars | contains null byte                | /a\x01\x7C\x00
swm | containsDangerousChars | contains control characters       | /\x7C\x0A\x7F /\x01 /\x08 /\x0B /\x0D /\x1F
swm | containsDangerousChars | contains DEL character            | /a\x7C\x7F
swm | containsDangerousChars | contains shell metacharacters     | /\x7C /& /; /$ /< /> /` /! /( /) /{ /} /' /" /\\x7C\xFF
swm | containsDangerousChars | contains backslash                | /a\*\xFF
swm | isValidUTF8            | invalid UTF-8 sequence at position 1 | /\xE2\x82 /\xE2\x82x /\xF0\x9F\x92 /\xF0\x9F\x92\xC0 /\xE0\x80
swm | isValidUTF8            | invalid UTF-8 sequence at position 3 | /\xC3\xA9\xC2/ /\xC3\xA9\xC3
swm | isValidUTF8            | overlong UTF-8 sequence           | /\xE0\x80\x80 /\xE0\x9F\xBF /\xF0\x8F\xBF\xBF
swm | isValidUTF8            | invalid UTF-8 byte 0xC1 at position 2 | /a\xC1\xBF
swm | isValidUTF8            | invalid UTF-8 byte 0x80 at position 2 | /a\x80
swm | isValidUTF8            | invalid UTF-8 byte 0xF5 at position 2 | /a\xF5\x80\x80\x80
swm | | | / /tmp/.hidden/./x /a/b.. /a\x09\x20\x20 /#%*+,-:=@^_~?[] /\xC3\xA9/\xE0\xA0\x80\xEF\xBF\xBF/\xF0\x90\x80\x80
swm | | | /\xED\xA0\x80/\xF4\x90\x80\x80\xDF\xBF
s m | isFilePathSafe         | wildcard not allowed -            | /a/x?.log /a/x] /*
sw  | isFilePathSafe         | path does not exist -             | @missing @dangling
  m | isFilePathSafe         | symbolic link not allowed -       | @link
  m | | | @missing @dangling @file
s   | | | @link @file /
)";
    const TemporaryTree tree;
    tree.file("file");
    tree.link("link", ".");
    tree.link("dangling", "nowhere");
    CapturedLog log;
    for (const Lines& cells : readTable(kTable, 4)) {
        const auto permits = [&cells](char flag) { return cells[0].find(flag) != std::string::npos; };
        for (const std::string& word : split(cells[3], " ")) {
            const std::string path = replaceAll(unescape(word), "^@", tree.path() + "/");
            const bool isSafe = isFilePathSafe(path, permits('s'), permits('w'), permits('m'));
            EXPECT_EQ(isSafe, cells[1].empty()) << word;
            const std::string reason = replaceAll(cells[2], "-$", "- " + path);
            const Lines refused = {"ERROR [" + cells[1] + "] FilePathCheck failed: " + reason};
            EXPECT_EQ(log.take(), isSafe ? accepted(path) : refused) << word;
        }
    }
    const std::string longest = "/" + std::string(4094, 'a');
    EXPECT_TRUE(isFilePathSafe(longest, true, true, true));
    EXPECT_FALSE(isFilePathSafe(longest + "a", true, true, true) || isFilePathSafe("", true, true, true));
    const std::string failed = "ERROR [isFilePathSafe] FilePathCheck failed: ";
    EXPECT_THAT(log.take(),
                ElementsAre(accepted(longest)[0], failed + "path too long (length=4096, max=4096)",
                            failed + "empty path"));
    std::string answers;
    for (const std::string& path :
         {tree.path(), tree.path("file"), tree.path("link"), tree.path("dangling")}) {
        answers += std::to_string(pathIsDir(path.c_str())) + std::to_string(pathIsLinkFile(path.c_str())) +
                   std::to_string(pathIsExists(path.c_str())) + ' ';
    }
    EXPECT_EQ(answers, "100 000 010 01-1 ");
}

TEST(Wildcard, Matches) {
    constexpr const char* kTable = R"(
# pattern | texts that it matches | texts that it does not; '' is the empty one
''       | ''                        | a
*        | '' a a/b .a               | *a
?        | a / * \                   | '' ab
a*       | a ab a/b a* aa            | '' ba A a*b
*ab      | ab aab abab aaab          | '' a b aba
a?*      | ab a/b/c                  | a '' ba
*a?c*e   | abcde xabaacee abcabce ae/abcde | abcd ace abce.
a*b*c    | abc abcbc a/b/c aabbcc    | acb ab abcx
*a*a*a*  | aaa baabab                | aa bbbbbbbbbbbbbbbbabbbbbbbbbbbbbbbba
/srv/*/x | /srv/a/x /srv/a/b/x       | /srv/x /srv/a/xx
[a]\*    | [a]\ [a]\bc               | a ab a\
*a       | a ba aaa *a               | *ba *b ab
**a      | a ba *ba                  | *b
)";
    const auto texts = [](const std::string& cell) {
        return cell.empty() ? Lines() : split(replaceAll(cell, "''", ""), " ");
    };
    for (const Lines& cells : readTable(kTable, 3)) {
        for (const bool expected : {true, false}) {
            for (const std::string& text : texts(cells[expected ? 1 : 2])) {
                const std::string pattern = replaceAll(cells[0], "''", "");
                EXPECT_EQ(wildcardMatch(pattern, text), expected) << pattern << " against " << text;
                EXPECT_EQ(matchesPattern(pattern, text), expected) << pattern << " against " << text;
            }
        }
    }
    EXPECT_TRUE(matchesPattern1("*ba", "*a") && matchesPattern1("/a/.b", "*[.]b") &&
                !matchesPattern1("a*", "a\\*"));
}

TEST(Wildcard, TellsAndTranslatesPatterns) {
    constexpr const char* kTable = R"(
# pattern | holds a wildcard, is safe | directory in front | regular expression
a]b             | 11 |          | a]b
a\*b            | 01 | /        | a*b
a\\*b           | 11 | /        | a\.*b
a\              | 01 |          | a
$^+\x7C(),}     | 01 |          | \$\^\+\\x7C\(\),}
file{a,b}.[!c]* | 11 | /        | file(a\x7Cb)\.[^c].*
{a{b,c}d,e}f    | 01 |          | (a(b\x7Cc)d,e}f
[!*-!]!         | 11 | /        | [^.*-!]!
[               | 11 |          | [
a/b?/c*         | 11 | a        | a/b./c.*
/a/[bc]/d       | 11 | /a/[bc]  | /a/[bc]/d
/a/b/           | 01 | /a       | /a/b/
/a//            | 00 | /a       | /a//
/a              | 01 | /        | /a
/               | 01 |          | /
a..b            | 00 |          | a\.\.b
a/./b           | 00 | a/.      | a/\./b
./b/.           | 01 | ./b      | \./b/\.
)";
    for (const Lines& cells : readTable(kTable, 4)) {
        const std::string pattern = unescape(cells[0]);
        EXPECT_EQ(std::to_string(containsWildcard(pattern)) + std::to_string(isPatternSafe(pattern)),
                  cells[1])
            << pattern;
        EXPECT_EQ(getParentDirWithoutWildcard(pattern), cells[2]) << pattern;
        EXPECT_EQ(wildcardsToRegex(pattern), unescape(cells[3])) << pattern;
    }
    const std::string slashes20 = "/1/2/3/4/5/6/7/8/9/10/11/12/13/14/15/16/17/18/19/20";
    for (const std::string& longest : {std::string(1024, 'a'), std::string(50, '[') + "]]", slashes20}) {
        EXPECT_TRUE(isPatternSafe(longest) && !isPatternSafe(longest + longest.front())) << longest;
    }
    EXPECT_FALSE(isPatternSafe(""));
}

TEST(Wildcard, FindsFiles) {
    const TemporaryTree tree;
    const std::string a1 = tree.file("d/a1");
    const std::string a2 = tree.file("d/a2");
    const std::string star = tree.file("e/*");
    tree.file("d/.a3");
    setenv("HOME", tree.path("d").c_str(), 1);
    CapturedLog log;
    EXPECT_THAT(searchFilesByPattern("~/*"), testing::UnorderedElementsAre(a1, a2));
    EXPECT_THAT(searchFilesByPattern(tree.path("?/[!b]2")), ElementsAre(a2));
    EXPECT_THAT(searchFilesByPattern(tree.path("?/\\*")), ElementsAre(star));
    EXPECT_THAT(log.take(), ElementsAre());
    EXPECT_TRUE(searchFilesByPattern(tree.path("x*")).empty() && searchFilesByPattern("/a/../b").empty());
    EXPECT_THAT(log.take(), ElementsAre("ERROR [searchFilesByPattern] No matches found.",
                                        "ERROR [searchFilesByPattern] Unsafe pattern detected: /a/../b"));
}
