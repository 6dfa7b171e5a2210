#pragma once

#include <memory>
#include <string>
#include <vector>

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
    class Appender;
    std::unique_ptr<Appender> appender;
    int formerPriority;
};
