#include "log/logger.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <log4cpp/Category.hh>
#include <log4cpp/FileAppender.hh>
#include <log4cpp/PatternLayout.hh>
#include <log4cpp/PropertyConfigurator.hh>

#include "base/trimmed.h"
#include "log/config_path.h"

namespace {

constexpr const char* kFallbackLogPath = "/var/log/zorv/zorv_label_manager.log";
constexpr const char* kFallbackPattern = "%d{%Y-%m-%d %H:%M:%S.%l} %t [%p] %m %n";
constexpr const char* kAlwaysCategory = "INFO";
constexpr mode_t kFallbackLogMode = 0644;
constexpr unsigned int kConfiguredLogMode = 0640;
constexpr size_t kPrefixSize = 1024;

void configureFallback(log4cpp::Category& root) {
    std::fputs("read log config error.\n", stdout);
    std::fflush(stdout);
    auto layout = std::make_unique<log4cpp::PatternLayout>();
    layout->setConversionPattern(kFallbackPattern);
    auto appender =
        std::make_unique<log4cpp::FileAppender>("rootAppender", kFallbackLogPath, true, kFallbackLogMode);
    appender->setLayout(layout.release());
    root.setPriority(log4cpp::Priority::INFO);
    root.addAppender(appender.release());
}

// A tab does no harm.
bool isControl(unsigned char byte) {
    return (byte < 0x20 && byte != '\t') || byte == 0x7f;
}

// With control characters as a backslash and three octal digits: names that are logged
// come from others, and must neither make lines of their own nor drive a terminal.
std::string escaped(const char* message) {
    std::string text;
    for (; *message != '\0'; ++message) {
        const auto byte = static_cast<unsigned char>(*message);
        if (isControl(byte)) {
            std::array<char, 5> code{};
            std::snprintf(code.data(), code.size(), "\\%03o", byte);
            text.append(code.data());
        } else {
            text.push_back(*message);
        }
    }
    return text;
}

void logFormatted(log4cpp::Category& category, log4cpp::Priority::Value priority, const char* tag, int line,
                  const char* format, va_list arguments) {
    if (!category.isPriorityEnabled(priority)) {
        return;
    }
    std::array<char, kPrefixSize> prefixed{};
    std::snprintf(prefixed.data(), prefixed.size(), "[%s:%d] %s", tag, line, format);

    // log4cpp grows its buffer for ever over a format that cannot be formatted, such as
    // one cut inside a conversion.
    va_list copy;
    va_copy(copy, arguments);
    const int length = std::vsnprintf(nullptr, 0, prefixed.data(), copy);
    va_end(copy);
    if (length < 0) {
        category.log(priority, escaped(prefixed.data()));
        return;
    }
    std::string message(static_cast<size_t>(length), '\0');
    va_copy(copy, arguments);
    std::vsnprintf(message.data(), message.size() + 1, prefixed.data(), copy);
    va_end(copy);
    if (std::any_of(message.begin(), message.end(), isControl)) {
        category.log(priority, escaped(message.c_str()));
    } else {
        category.logva(priority, prefixed.data(), arguments);
    }
}

// What a file appender keeps for itself and those that are made from it.
struct OwnFileAppender : log4cpp::FileAppender {
    static int descriptorOf(const log4cpp::FileAppender& appender) {
        return appender.*(&OwnFileAppender::_fd);
    }
};

// log4cpp makes a file, at rolling too, with the appender's own mode, and opens it in a
// way that programs which are run would have it, too. A file whose name has a variable is
// only found here; one of another owner keeps its mode.
void adoptFiles(mode_t mode) {
    const std::unique_ptr<std::vector<log4cpp::Category*>> categories(
        log4cpp::Category::getCurrentCategories());
    for (log4cpp::Category* category : *categories) {
        for (log4cpp::Appender* appender : category->getAllAppenders()) {
            if (auto* toFile = dynamic_cast<log4cpp::FileAppender*>(appender)) {
                const int descriptor = OwnFileAppender::descriptorOf(*toFile);
                struct stat status {};
                toFile->setMode(mode);
                fcntl(descriptor, F_SETFD, FD_CLOEXEC);
                if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) &&
                    status.st_uid == geteuid()) {
                    fchmod(descriptor, mode);
                }
            }
        }
    }
}

std::string_view trimBlanks(std::string_view text) {
    return trimmed(text, " \t");
}

// The file name that a properties line gives to an appender; empty for any other line.
std::string_view configuredFileName(std::string_view line) {
    constexpr std::string_view kPrefix = "log4cpp.appender.";
    constexpr std::string_view kSuffix = ".fileName";
    line = trimBlanks(line);
    const size_t equals = line.find('=');
    if (line.empty() || line.front() == '#' || equals == std::string_view::npos) {
        return {};
    }
    const std::string_view key = trimBlanks(line.substr(0, equals));
    const bool isFileName = key.substr(0, kPrefix.size()) == kPrefix && key.size() >= kSuffix.size() &&
                            key.substr(key.size() - kSuffix.size()) == kSuffix;
    return isFileName ? trimBlanks(line.substr(equals + 1)) : std::string_view{};
}

}  // namespace

Logger& Logger::getInstance() {
    static Logger instance;
    return instance;
}

Logger::Logger() : root(&log4cpp::Category::getRoot()) {
    const int callersReason = errno;  // the first message may be about it
    try {
        const std::set<std::string> paths = getLogFilePathsFromConfig(kLogConfigPath);
        log4cpp::PropertyConfigurator::configure(kLogConfigPath);
        if (!paths.empty()) {
            setLogFilesPermissions(paths, kConfiguredLogMode);
            adoptFiles(kConfiguredLogMode);
        }
        log4cpp::Category& always = log4cpp::Category::getInstance(kAlwaysCategory);
        always.setAdditivity(false);
        categories[kAlwaysCategory] = &always;
    } catch (const std::runtime_error&) {
        configureFallback(*root);
        adoptFiles(kFallbackLogMode);
    }
    errno = callersReason;
}

Logger::Logger(const std::string& configPath) : root(&log4cpp::Category::getRoot()) {
    log4cpp::PropertyConfigurator::configure(configPath);
}

Logger::~Logger() {
    log4cpp::Category::shutdown();
}

#define ZORV_DEFINE_LEVEL_CALL(name, priority)                                          \
    void Logger::name(const char* tag, int line, const char* format, ...) {             \
        va_list arguments;                                                              \
        va_start(arguments, format);                                                    \
        logFormatted(*root, log4cpp::Priority::priority, tag, line, format, arguments); \
        va_end(arguments);                                                              \
    }

ZORV_DEFINE_LEVEL_CALL(debug, DEBUG)
ZORV_DEFINE_LEVEL_CALL(info, INFO)
ZORV_DEFINE_LEVEL_CALL(warn, WARN)
ZORV_DEFINE_LEVEL_CALL(error, ERROR)
ZORV_DEFINE_LEVEL_CALL(fatal, FATAL)

#undef ZORV_DEFINE_LEVEL_CALL

void Logger::always(const char* tag, int line, const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    logFormatted(*getCategory(kAlwaysCategory), log4cpp::Priority::INFO, tag, line, format, arguments);
    va_end(arguments);
}

log4cpp::Category* Logger::getCategory(const std::string& name) {
    const auto cached = categories.find(name);
    if (cached != categories.end()) {
        return cached->second;
    }
    log4cpp::Category* category = &log4cpp::Category::getInstance(name);
    categories.emplace(name, category);
    return category;
}

std::set<std::string> Logger::getLogFilePathsFromConfig(const std::string& configPath) {
    std::set<std::string> paths;
    std::ifstream config(configPath);
    if (!config.is_open()) {
        std::fprintf(stderr, "Failed to open config file: %s\n", configPath.c_str());
        return paths;
    }
    for (std::string line; std::getline(config, line);) {
        const std::string_view path = configuredFileName(line);
        if (!path.empty()) {
            paths.emplace(path);
        }
    }
    return paths;
}

void Logger::setLogFilesPermissions(const std::set<std::string>& paths, unsigned int mode) {
    for (const std::string& path : paths) {
        struct stat status {};
        const bool isThere = stat(path.c_str(), &status) == 0;
        if (isThere && !S_ISREG(status.st_mode)) {
            continue;  // a directory's or a device's mode is not the log's
        }
        if ((!isThere || chmod(path.c_str(), mode) != 0) && errno != ENOENT) {
            std::fprintf(stderr, "chmod failed for %s: %s\n", path.c_str(), std::strerror(errno));
        }
    }
}
