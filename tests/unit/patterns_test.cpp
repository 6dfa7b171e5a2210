#include <algorithm>
#include <cstdlib>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/path_safety.h"
#include "common/wildcard.h"
#include "tests/support/captured_log.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

using testing::ElementsAre;

namespace {

// The matcher's rules, one case after the other, from a place in both; the last star and
// what it has taken, if any.
bool matchesByRules(const std::string& pattern, const std::string& text, size_t p = 0, size_t t = 0,
                    size_t star = std::string::npos, size_t taken = 0) {
    if (t == text.size()) {
        return pattern.find_first_not_of('*', p) == std::string::npos;
    }
    if (p < pattern.size() && (pattern[p] == text[t] || pattern[p] == '?')) {
        return matchesByRules(pattern, text, p + 1, t + 1, star, taken);
    }
    if (p < pattern.size() && pattern[p] == '*') {
        return matchesByRules(pattern, text, p + 1, t, p, t);
    }
    return star != std::string::npos && matchesByRules(pattern, text, star + 1, taken + 1, star, taken + 1);
}

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

TEST(Wildcard, MatchesAsItsRulesSay) {
    std::mt19937 random(20240117);
    const auto word = [&random](const std::string& alphabet, size_t longest) {
        std::string made(random() % (longest + 1), ' ');
        std::generate(made.begin(), made.end(), [&] { return alphabet[random() % alphabet.size()]; });
        return made;
    };
    int matches = 0;
    for (int i = 0; i < 400000; ++i) {
        const std::string pattern = word("aab**?/", 7);
        const std::string text = word("aab*/", 9);
        const bool expected = matchesByRules(pattern, text);
        matches += expected ? 1 : 0;
        ASSERT_TRUE(wildcardMatch(pattern, text) == expected && matchesPattern(pattern, text) == expected)
            << pattern << " against " << text;
    }
    EXPECT_GT(matches, 20000);  // so that the pairs are worth something
    EXPECT_TRUE(!wildcardMatch("*a", "*ba") && wildcardMatch("[a]\\*", "[a]\\bc"));
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
