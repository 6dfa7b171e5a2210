#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace log4cpp {
class Appender;
}

constexpr const char* kLogProperties = "/etc/zorv/label/zorv-label-log.properties";

// Properties of an appender that writes lines like "ERROR [tag:7] text" to a file.
std::string fileAppender(const std::string& name, const std::string& path);

// Collects what this process logs, down to debug level, as lines like "ERROR [tag] text",
// without line numbers. One at a time.
class CapturedLog {
 public:
    CapturedLog();
    ~CapturedLog();

    // The lines since the last call.
    std::vector<std::string> take();
    // Of them the errors.
    std::vector<std::string> takeErrors();

 private:
    std::ostringstream stream;
    std::unique_ptr<log4cpp::Appender> appender;
};
