#include "tools/inscenter/LogOutput.h"

#include <log4cxx/consoleappender.h>
#include <log4cxx/level.h>
#include <log4cxx/patternlayout.h>

#include "platform/utils/Log.h"

namespace inscenter {

struct LogOutput::State {
    log4cxx::AppenderPtr appender;
};

LogOutput::LogOutput() : state_(std::make_unique<State>()) {
    const log4cxx::LayoutPtr layout(new log4cxx::PatternLayout(LOG4CXX_STR("%d{HH:mm:ss.SSS} %-5p %m%n")));
    state_->appender =
        log4cxx::AppenderPtr(new log4cxx::ConsoleAppender(layout, log4cxx::ConsoleAppender::getSystemErr()));
    g_MXStdLogger->addAppender(state_->appender);
    g_MXStdLogger->setAdditivity(false);  // a configuration of the host's would print every line twice
    g_MXStdLogger->setLevel(log4cxx::Level::getInfo());
    utils::CLogCenter::setLogEnabled(true);
}

LogOutput::~LogOutput() {
    utils::CLogCenter::setLogEnabled(false);
    g_MXStdLogger->removeAppender(state_->appender);
    g_MXStdLogger->setAdditivity(true);
}

}  // namespace inscenter
