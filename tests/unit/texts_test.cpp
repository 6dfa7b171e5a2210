#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/config_file.h"
#include "common/path_safety.h"
#include "common/sm3_hash.h"
#include "common/string_utils.h"
#include "common/wildcard.h"
#include "tests/support/captured_log.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

using testing::ElementsAre;
using testing::Pair;
using namespace std::string_literals;

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
            Lines lines = log.take();
            EXPECT_EQ(lines.back(), isSafe ? "DEBUG [isFilePathSafe] FilePathCheck passed: " + path
                                           : "ERROR [" + cells[1] + "] FilePathCheck failed: " +
                                                 replaceAll(cells[2], "-$", "- " + path));
            lines.pop_back();
            const std::string spaces = "WARN [isFilePathSafe] FilePathCheck: path contains spaces - " + path;
            EXPECT_EQ(lines, Lines(isSafe && word.find("\\x20") != std::string::npos ? 1 : 0, spaces));
        }
    }
    const std::string longest = "/" + std::string(4094, 'a');
    EXPECT_TRUE(isFilePathSafe(longest, true, true, true));
    EXPECT_FALSE(isFilePathSafe(longest + "a", true, true, true) || isFilePathSafe("", true, true, true));
    const std::string failed = "ERROR [isFilePathSafe] FilePathCheck failed: ";
    EXPECT_THAT(log.take(), ElementsAre(testing::_, failed + "path too long (length=4096, max=4096)",
                                        failed + "empty path"));
}

TEST(Wildcard, Matches) {
    constexpr const char* kTable = R"(
# pattern | texts that it matches | texts that it does not; '' is the empty one
         | ''                       | a
*        | '' a a/b .a              | *a
?        | a / * \                  | '' ab
*a       | a ba aaa *a              | '' *ba *b ab A
a?*      | ab a/b/c                 | a '' ba
[a]\*    | [a]\ [a]\bc              | a ab a\
*a?c*e   | abcde xabaacee abcabce ae/abcde | abcd ace abce.
*a*a*a*  | aaa baabab               | aa bbbbbbbbbbbbbbbbabbbbbbbbbbbbbbbba
/srv/*/x | /srv/a/x /srv/a/b/x      | /srv/x /srv/a/xx
**a      | a ba *ba                 | *b
)";
    for (const Lines& cells : readTable(kTable, 3)) {
        for (const bool expected : {true, false}) {
            for (const std::string& word : split(cells[expected ? 1 : 2], " ")) {
                const std::string text = word == "''" ? "" : word;
                EXPECT_EQ(wildcardMatch(cells[0], text), expected) << cells[0] << " against " << text;
                EXPECT_EQ(matchesPattern(cells[0], text), expected) << cells[0] << " against " << text;
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
/a/[bc]/d       | 11 | /a/[bc]  | /a/[bc]/d
/a/b/           | 01 | /a       | /a/b/
/               | 01 |          | /
a..b            | 00 |          | a\.\.b
a/./b           | 00 | a/.      | a/\./b
./b/.           | 01 | ./b      | \./b/\.
)";
    for (const Lines& cells : readTable(kTable, 4)) {
        const std::string pattern = unescape(cells[0]);
        EXPECT_EQ(containsWildcard(pattern), cells[1][0] == '1') << pattern;
        EXPECT_EQ(isPatternSafe(pattern), cells[1][1] == '1') << pattern;
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
    const std::string star = tree.file("d/*");
    tree.file("d/.a");
    CapturedLog log;
    EXPECT_EQ(searchFilesByPattern(tree.path("?/[!b]")), Lines{star});
    EXPECT_EQ(searchFilesByPattern(tree.path("?/\\*")), Lines{star});
    EXPECT_TRUE(searchFilesByPattern(tree.path("x*")).empty() && searchFilesByPattern("/a/../b").empty());
    EXPECT_EQ(log.take(), (Lines{"ERROR [searchFilesByPattern] No matches found.",
                                 "ERROR [searchFilesByPattern] Unsafe pattern detected: /a/../b"}));
}

TEST(Strings, AreTrimmedSplitAndReplaced) {
    constexpr const char* kTable = R"(
# text | old | new | replaced everywhere | in front | removed everywhere | in front
abcab | ab  | x  | xcx    | xcab | c    | cab
aaa   | a   | aa | aaaaaa | aaaa |      | aa
aabb  | ab  | x  | axb    | aabb | ab   | aabb
a     |     | x  | a      | a    | a    | a
      | a   | x  |        |      |      |
)";
    CapturedLog log;
    for (const Lines& row : readTable(kTable, 7)) {
        EXPECT_EQ(replaceString(row[0], row[1], row[2]), row[3]) << row[0];
        EXPECT_EQ(replaceBeginString(row[0], row[1], row[2]), row[4]) << row[0];
        EXPECT_EQ(removeSubString(row[0], row[1]), row[5]) << row[0];
        EXPECT_EQ(removeFirstSubString(row[0], row[1]), row[6]) << row[0];
    }
    EXPECT_EQ(log.take(),
              (Lines{"ERROR [replaceString] oldStr is empty", "ERROR [replaceBeginString] oldStr is empty",
                     "ERROR [replaceString] text is empty", "ERROR [replaceBeginString] text is empty"}));
    EXPECT_EQ(trim(" \t\r\n a\v b\f \r") + trim("\v") + trim(" \t"), "a\v b\f\v");
    EXPECT_EQ(removeEscapeChars("\\\\a\\*b\\"), "a*b");
    EXPECT_TRUE(containsEscapeChars("a\\") && !containsEscapeChars("a/"));
    Lines fields = {"old"};
    splitString(",a,,b c,\0,"s, ',', fields);
    EXPECT_THAT(fields, ElementsAre("a", "b c", "\0"s));
    splitString(",,", ',', fields);
    EXPECT_TRUE(fields.empty() && log.take().empty());
    splitString("", ',', fields);
    EXPECT_THAT(log.take(), ElementsAre("DEBUG [splitString] input string is empty"));
}

TEST(Strings, ReplaceVariables) {
    const std::unordered_map<std::string, std::string> variables = {
        {"HOME", "/root"}, {"EMPTY", ""}, {"NEST", "<HOME>"}, {"a<b", "odd"}, {"", "never"}};
    constexpr const char* kTable = R"(
# text | result, logged | result, not logged
cd<HOME>/<HOME>   | cd/root//root
<NEST><EMPTY>,    | <HOME>,
<a<b> <x<HOME>> <none> <> <HOME | odd <x/root> <none> <> <HOME
>HOME<            | | >HOME<
)";
    CapturedLog log;
    for (const Lines& row : readTable(kTable, 3)) {
        EXPECT_EQ(replaceVariable(variables, row[0]), row[1] + row[2]);
        EXPECT_EQ(log.take(), Lines(row[1].empty() ? 0 : 1, "DEBUG [replaceVariable] replaced: " + row[1]));
    }
    EXPECT_EQ(replaceVariable(variables, replaceString(std::string(101, 'x'), "x", "<HOME>")),
              replaceString(std::string(100, 'x'), "x", "/root") + "<HOME>");
}

TEST(Digests, HaveTheKnownValues) {
    CapturedLog log;
    EXPECT_EQ(getSM3HashValue("abc"), "66c7f0f462eeedd9d1f2d46bdc10e4e24167c4875cf2f7a2297da02b8f4ba8e0");
    EXPECT_EQ(getSM3HashValue(""), "1ab21d8355cfa17f8e61194831e81a8f22bec8c728fefb747ed035eb5082aa2b");
    EXPECT_NE(getSM3HashValue("a\0b"s), getSM3HashValue("a"));
    EXPECT_EQ(getSM3HashLast64Bits("abc"), 0x297DA02B8F4BA8E0U);
    EXPECT_EQ(getSM3HashLast32Bits("abc"), 0x8F4BA8E0U);
    EXPECT_TRUE(getKmodNameHash(nullptr, 0) == 0x811C9DC5U && getKmodNameHash("\xFF", 1) == 0xF9F3A14EU);
    EXPECT_THAT(log.take(), ElementsAre());
}

TEST(ConfigFiles, AreReadByTwoSetsOfRules) {
    const TemporaryTree tree;
    CapturedLog log;
    const std::string path = tree.file(
        "config",
        "outside = 1\n[ net ]\r\n \t# comment = 1\n; note = 2\nport = 80 81\t\tx \r\nport = 82\n= nameless\n"
        "no pair\n[s] trailing = 3\na=b=c\n[open = 4\n[empty]\n[ net ]\n\tlate= 5\n[]\nk=\t v 1\t2 \r");
    EXPECT_THAT(parseConfig(path),
                testing::UnorderedElementsAre(
                    Pair(" net ", testing::UnorderedElementsAre(
                                      Pair("; note", "2"), Pair("port", "80 81\t\tx"), Pair("", "nameless"),
                                      Pair("[s] trailing", "3"), Pair("a", "b=c"), Pair("[open", "4"),
                                      Pair("late", "5"))),
                    Pair("empty", testing::IsEmpty()), Pair("", testing::IsEmpty())));
    EXPECT_THAT(readConfig(path),
                ElementsAre(Pair(" net .", "nameless"), Pair(" net .late", "5"), Pair(" net .port ", "82"),
                            Pair("k", "v1\t2"), Pair("outside ", "1"), Pair("s.a", "b=c")));
    // A directory opens, and reads as nothing.
    EXPECT_TRUE(parseConfig(tree.path()).empty() && readConfig(tree.path()).empty() && log.take().empty());
    EXPECT_TRUE(parseConfig("/none").empty() && readConfig("/none").empty());
    EXPECT_THAT(log.take(), ElementsAre("ERROR [parseConfig] Failed to open config: /none",
                                        "ERROR [readConfig] can not open file /none"));
}
