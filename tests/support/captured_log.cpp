#include "tests/support/captured_log.h"

#include <regex>
#include <utility>

#include <log4cpp/AppenderSkeleton.hh>
#include <log4cpp/Category.hh>

#include "log/logger.h"

class CapturedLog::Appender : public log4cpp::AppenderSkeleton {
 public:
    Appender() : AppenderSkeleton("CapturedLog") {}
    void close() override {}
    bool requiresLayout() const override { return false; }
    void setLayout(log4cpp::Layout*) override {}

    std::vector<std::string> lines;

 protected:
    void _append(const log4cpp::LoggingEvent& event) override {
        static const std::regex place("^\\[([^:]*):[0-9]+\\]");
        lines.push_back(log4cpp::Priority::getPriorityName(event.priority) + ' ' +
                        std::regex_replace(event.message, place, "[$1]"));
    }
};

CapturedLog::CapturedLog() : appender(std::make_unique<Appender>()) {
    Logger::getInstance();  // whose construction sets the root up anew
    log4cpp::Category& root = log4cpp::Category::getRoot();
    formerPriority = root.getPriority();
    root.setPriority(log4cpp::Priority::DEBUG);
    root.addAppender(*appender);
}

CapturedLog::~CapturedLog() {
    log4cpp::Category::getRoot().removeAppender(appender.get());
    log4cpp::Category::getRoot().setPriority(formerPriority);
}

std::vector<std::string> CapturedLog::take() {
    return std::exchange(appender->lines, {});
}
