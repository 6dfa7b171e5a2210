#include "log/logger.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>

#include <log4cpp/Category.hh>
#include <log4cpp/FileAppender.hh>
#include <log4cpp/PatternLayout.hh>
#include <log4cpp/PropertyConfigurator.hh>

#include "base/trimmed.h"

namespace {

constexpr const char* kConfigPath = "/etc/zorv/label/zorv-label-log.properties";
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

void logFormatted(log4cpp::Category& category, log4cpp::Priority::Value priority, const char* tag, int line,
                  const char* format, va_list arguments) {
    if (!category.isPriorityEnabled(priority)) {
        return;
    }
    std::array<char, kPrefixSize> prefixed{};
    std::snprintf(prefixed.data(), prefixed.size(), "[%s:%d] %s", tag, line, format);

    // log4cpp grows its buffer for ever over a format that cannot be formatted, such as
    // one cut inside a conversion.
    va_list probe;
    va_copy(probe, arguments);
    const int length = std::vsnprintf(nullptr, 0, prefixed.data(), probe);
    va_end(probe);
    if (length < 0) {
        category.log(priority, std::string(prefixed.data()));
        return;
    }
    category.logva(priority, prefixed.data(), arguments);
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
        const std::set<std::string> paths = getLogFilePathsFromConfig(kConfigPath);
        log4cpp::PropertyConfigurator::configure(kConfigPath);
        if (!paths.empty()) {
            setLogFilesPermissions(paths, kConfiguredLogMode);
        }
        log4cpp::Category& always = log4cpp::Category::getInstance(kAlwaysCategory);
        always.setAdditivity(false);
        categories[kAlwaysCategory] = &always;
    } catch (const std::runtime_error&) {
        configureFallback(*root);
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
        if (chmod(path.c_str(), mode) != 0 && errno != ENOENT) {
            std::fprintf(stderr, "chmod failed for %s: %s\n", path.c_str(), std::strerror(errno));
        }
    }
}
