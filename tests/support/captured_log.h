#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace log4cpp {
class Appender;
}

// Collects what this process logs, down to debug level, as lines like "ERROR [tag] text" (the line number is
// left out). The root category is as before afterwards. One at a time.
class CapturedLog {
 public:
    CapturedLog();
    ~CapturedLog();
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    // The lines since the last call.
    std::vector<std::string> take();

 private:
    std::ostringstream stream;
    std::unique_ptr<log4cpp::Appender> appender;
    int formerPriority;
};
