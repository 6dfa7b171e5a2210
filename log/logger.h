#pragma once

#include <map>
#include <set>
#include <string>

#include "base/api.h"

namespace log4cpp {
class Category;
}

// The one logging facility of a process, over log4cpp.
//
// getInstance() builds it on the first log call: from the properties file
// /etc/zorv/label/zorv-label-log.properties, or, when that cannot be used, with one
// appender on /var/log/zorv/zorv_label_manager.log at priority INFO ("read log config
// error." is then printed on standard output, after "Failed to open config file: PATH" on
// standard error when it was the opening that failed). Logging never fails its caller.
// The categories belong to log4cpp.
//
// Threads: the construction is safe, and so are the level calls other than always().
// getCategory() and always() use a cache without a lock and belong to one thread.
//
// Level calls take the caller's tag (by convention its function name), a line and a
// printf format with its arguments, and log "[tag:line] text". The tag, the line and the
// *format* are joined first, cut at 1,023 bytes, and the result is the format of the
// second and final formatting: a '%' in the tag is a conversion. A control character of
// the result, other than a tab, is logged as a backslash and three octal digits, so that
// a message is one line whatever names it holds. A level that the root category filters
// out costs one comparison and formats nothing.
class ZORV_API Logger {
 public:
    static Logger& getInstance();

    Logger();
    // From that properties file only: no fallback and no file modes. Throws
    // log4cpp::ConfigureFailure.
    explicit Logger(const std::string& configPath);
    ~Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    void debug(const char* tag, int line, const char* format, ...) __attribute__((format(printf, 4, 5)));
    void info(const char* tag, int line, const char* format, ...) __attribute__((format(printf, 4, 5)));
    void warn(const char* tag, int line, const char* format, ...) __attribute__((format(printf, 4, 5)));
    void error(const char* tag, int line, const char* format, ...) __attribute__((format(printf, 4, 5)));
    void fatal(const char* tag, int line, const char* format, ...) __attribute__((format(printf, 4, 5)));
    // At priority INFO on the category "INFO", whatever the root filters out. An
    // exception of log4cpp ends the process.
    void always(const char* tag, int line, const char* format, ...) noexcept
        __attribute__((format(printf, 4, 5)));

    log4cpp::Category* getCategory(const std::string& name);

    // The values of all "log4cpp.appender.NAME.fileName" keys of a properties file. A
    // file that cannot be opened gives "Failed to open config file: PATH" on standard
    // error and the empty set.
    static std::set<std::string> getLogFilePathsFromConfig(const std::string& configPath);
    // Applies mode to each file, in order. What is missing, or is no regular file, is
    // passed over; any other failure is one line on standard error ("chmod failed for
    // PATH: REASON").
    static void setLogFilesPermissions(const std::set<std::string>& paths, unsigned int mode);

 private:
    std::map<std::string, log4cpp::Category*> categories;
    log4cpp::Category* root;
};

// Logs through the process's Logger, tagged with the calling function's name:
// ZORV_LOG(error, "no such %s", name).
#define ZORV_LOG(level, ...) Logger::getInstance().level(__func__, __LINE__, __VA_ARGS__)
