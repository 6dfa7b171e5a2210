#include "cli/usage.h"

#include "cli/output.h"

namespace {

enum class Style { kPlain, kTab, kGreen, kYellow };

struct UsageLine {
    Style style;
    const char* text;
};

// A fixed text, not made from the option table: its wording, its alignment and its slips
// are what users know.
// clang-format off
constexpr UsageLine kUsage[] = {
    {Style::kPlain, ""},
    {Style::kPlain, "==========================================================================================="},
    {Style::kPlain, "option:"},
    {Style::kPlain, "-a --add             add label/oid/sid"},
    {Style::kPlain, "-g --get             get label/oid/sid"},
    {Style::kPlain, "-d --del             del label/oid/sid"},
    {Style::kPlain, "-r --restore         resote label"},
    {Style::kPlain, "-i --init            initialize label"},
    {Style::kPlain, ""},
    {Style::kPlain, "arg:"},
    {Style::kPlain, "-s --scan /          scan disk from / "},
    {Style::kPlain, "-v --id              sid/oid value"},
    {Style::kPlain, "-u --user-set        query the oid/sid/tid/inherit_flag set by a user"},
    {Style::kPlain, "-o --oid             get/set/del/clear oid for file/dir"},
    {Style::kPlain, "-m --sid             get/set/del/clear sid for file/dir"},
    {Style::kPlain, "-t --tid             get/set/del/clear tid for file/dir"},
    {Style::kPlain, "-n --inherit-flag    get/set/del/clear inherit-flag for file/dir"},
    {Style::kPlain, "-p --pkg-id          get/set/del/clear oid/sid for pkg"},
    {Style::kPlain, "-q --pkg-name       get pkg id by pkg name"},
    {Style::kPlain, "-k --module          get oid for kernel module"},
    {Style::kPlain, "-e --device          get oid for device"},
    {Style::kPlain, "-l --label           show the file label"},
    {Style::kPlain, "-c --clear           clear all oid/sid"},
    {Style::kPlain, "-b --batch           batch get sid and oid"},
    {Style::kPlain, "-P --pattern-match   file path usage pattern matching"},
    {Style::kPlain, "-R --recursive       show dir label recursively, use with parameter 'l'"},
    {Style::kPlain, "-H --no-dereference  do not dereference symbolic links"},
    {Style::kPlain, "-L --dir-label       show the recursion dir label(abandon, use -R -l instead), "},
    {Style::kPlain, "-S --subscribe       subscribe to file label change message."},
    {Style::kPlain, "-T --topic           subscribe to message topic."},
    {Style::kPlain, "-3 --sm3             get path sm3 hash value"},
    {Style::kPlain, "Command usage example:"},
    {Style::kPlain, ""},
    {Style::kGreen, "==========================软件包id设置查询等命令用法和示例======================================="},
    {Style::kTab, "1)获取pkgid : zorv-label-manager-tool -g -p 软件包名称"},
    {Style::kTab, "2)设置pkgid : zorv-label-manager-tool -a -p 软件包名称 pkg_id"},
    {Style::kTab, "3)删除已设置的pkgid : zorv-label-manager-tool -d -p 软件包名称"},
    {Style::kTab, "4)清空已设置的pkgid : zorv-label-manager-tool -d -c pkg_id"},
    {Style::kTab, "5)查询已设置的pkgid : zorv-label-manager-tool -g -u -p 软件包名称"},
    {Style::kTab, "6)列出所有pkgid : zorv-label-manager-tool -g -u -p --all"},
    {Style::kGreen, "==========================标记设置命令用法和示例================================================="},
    {Style::kPlain, "对文件标记各个字段设置指定值："},
    {Style::kTab, "1)设置oid : zorv-label-manager-tool -a -o 文件完整路径 pkg_id file_id path_id"},
    {Style::kTab, "2)设置sid : zorv-label-manager-tool -a -m 文件完整路径 pkg_id file_id path_id"},
    {Style::kTab, "3)设置tid : zorv-label-manager-tool -a -t 文件完整路径 tid"},
    {Style::kTab, "4)设置inherit_flag : zorv-label-manager-tool -a -n 文件完整路径 inherit_flag"},
    {Style::kPlain, "删除对文件标记各个字段设置的指定值："},
    {Style::kTab, "1)删除oid : zorv-label-manager-tool -d -o 文件完整路径"},
    {Style::kTab, "2)删除sid : zorv-label-manager-tool -d -m 文件完整路径"},
    {Style::kTab, "3)删除tid : zorv-label-manager-tool -d -t 文件完整路径"},
    {Style::kTab, "4)删除inherit_flag : zorv-label-manager-tool -d -n 文件完整路径"},
    {Style::kPlain, "清空对文件标记各个字段设置的指定值："},
    {Style::kTab, "1)清空pkgid/oid/sid/tid/inherit_flag : zorv-label-manager-tool -d -c sid/oid/tid/inherit_flag/pkgid"},
    {Style::kPlain, "查询对文件标记各个字段设置的指定值："},
    {Style::kYellow, "说明：当要查询指定文件标记相应字段的值时需要给出文件完整绝对路径,当要查看所以文件相应字段的值时将文件完整绝对路径替换为--all即可"},
    {Style::kTab, "1)查询oid : zorv-label-manager-tool -g -u -o 文件完整路径"},
    {Style::kTab, "2)查询sid : zorv-label-manager-tool -g -u -m 文件完整路径"},
    {Style::kTab, "3)查询tid : zorv-label-manager-tool -g -u -t 文件完整路径"},
    {Style::kTab, "4)查询inherit_flag : zorv-label-manager-tool -g -u -n 文件完整路径"},
    {Style::kYellow, "说明, 以上命令中文件路径支持模式匹配, 使用模式匹配时需要加上参数 -P, 文件路径需要加上双引号."},
    {Style::kTab, "1)设置oid(路径中有通配符) : zorv-label-manager-tool -P -a -o \"有通配符路路径\" pkg_id file_id path_id"},
    {Style::kGreen, "==========================标记查看删除等命令用法和示例================================================="},
    {Style::kTab, "1)查看文件/目录标记 :          zorv-label-manager-tool -g -l 文件完整路径"},
    {Style::kTab, "2)递归查看目录下所有文件标记 :  zorv-label-manager-tool -R -g -l 文件完整路径"},
    {Style::kTab, "1)删除文件/目录标记 :          zorv-label-manager-tool -d -l 文件完整路径"},
    {Style::kTab, "2)递归删除目录下所有文件标记 :  zorv-label-manager-tool -R -d -l 文件完整路径"},
};
// clang-format on

constexpr const char* formatOf(Style style) {
    switch (style) {
        case Style::kTab:
            return "\t%s";
        case Style::kGreen:
            return "\033[1;32m%s\033[0m";
        case Style::kYellow:
            return "\033[1;33m%s\033[0m";
        case Style::kPlain:
            break;
    }
    return "%s";
}

}  // namespace

void printUsage() {
    for (const UsageLine& line : kUsage) {
        printLine(formatOf(line.style), line.text);
    }
}
