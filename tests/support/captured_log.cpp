#include "tests/support/captured_log.h"

#include <log4cpp/Category.hh>
#include <log4cpp/OstreamAppender.hh>
#include <log4cpp/PatternLayout.hh>

#include "log/logger.h"
#include "tests/support/table.h"

std::string fileAppender(const std::string& name, const std::string& path) {
    const std::string key = "log4cpp.appender." + name;
    return key + "=FileAppender\n " + key + ".fileName = " + path + "\t\n" + key + ".layout=PatternLayout\n" +
           key + ".layout.ConversionPattern=%p %m%n\n";
}

CapturedLog::CapturedLog() : appender(std::make_unique<log4cpp::OstreamAppender>("CapturedLog", &stream)) {
    auto layout = std::make_unique<log4cpp::PatternLayout>();
    layout->setConversionPattern("%p %m%n");
    appender->setLayout(layout.release());
    Logger::getInstance();  // whose construction sets the root up anew
    log4cpp::Category::getRoot().setPriority(log4cpp::Priority::DEBUG);
    log4cpp::Category::getRoot().addAppender(*appender);
}

CapturedLog::~CapturedLog() {
    log4cpp::Category::getRoot().removeAppender(appender.get());
}

std::vector<std::string> CapturedLog::take() {
    Lines lines = split(replaceAll(stream.str(), "(\\[[^\\]:]*):[0-9]+\\] ", "$1] "), "\n");
    stream.str("");
    lines.pop_back();
    return lines;
}

std::vector<std::string> CapturedLog::takeErrors() {
    Lines lines = take();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("ERROR"); });
    return lines;
}
