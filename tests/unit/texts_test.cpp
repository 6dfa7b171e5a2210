#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/config_file.h"
#include "common/sm3_hash.h"
#include "common/string_utils.h"
#include "tests/support/captured_log.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

using testing::ElementsAre;
using testing::Pair;
using namespace std::string_literals;

TEST(Strings, AreTrimmedSplitAndReplaced) {
    constexpr const char* kTable = R"(
# text | old | new | replaced everywhere | in front | removed everywhere | in front
abcab | ab  | x  | xcx    | xcab | c    | cab
abc   | bc  | x  | ax     | abc  | a    | abc
aaa   | a   | aa | aaaaaa | aaaa |      | aa
aabb  | ab  | x  | axb    | aabb | ab   | aabb
aaa   | aa  | b  | ba     | ba   | a    | a
abc   | abc |    |        |      |      |
a     | ab  | x  | a      | a    | a    | a
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
    EXPECT_THAT(
        log.take(),
        ElementsAre("ERROR [replaceString] oldStr is empty", "ERROR [replaceBeginString] oldStr is empty",
                    "ERROR [replaceString] text is empty", "ERROR [replaceBeginString] text is empty"));
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
<none> <> <HOME   | <none> <> <HOME
<a<b> <x<HOME>>   | odd <x/root>
>HOME<            | | >HOME<
plain>            | | plain>
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
    EXPECT_TRUE(getSM3HashLast64Bits("abc") == 0x297DA02B8F4BA8E0U &&
                getSM3HashLast32Bits("abc") == 0x8F4BA8E0U);
    EXPECT_TRUE(getKmodNameHash(nullptr, 0) == 0x811C9DC5U && getKmodNameHash("ab", 1) == 0xE40C292CU);
    EXPECT_EQ(getKmodNameHash("\xFF", 1), 0xF9F3A14EU);
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
    EXPECT_TRUE(parseConfig(tree.path()).empty() && readConfig(tree.path()).empty());
    EXPECT_THAT(log.take(), ElementsAre());  // a directory opens, and reads as nothing
    EXPECT_TRUE(parseConfig("/none").empty() && readConfig("/none").empty());
    EXPECT_THAT(log.take(), ElementsAre("ERROR [parseConfig] Failed to open config: /none",
                                        "ERROR [readConfig] can not open file /none"));
}
