#pragma once

#include <memory>

namespace inscenter {

/// While it lives, the libraries' log goes to standard error, a line "HH:mm:ss.SSS LEVEL text" each. A build with
/// log4cxx takes LogOutput.cpp, one without it PlainLogOutput.cpp. One at a time.
class LogOutput {
public:
    LogOutput();
    ~LogOutput();
    LogOutput(const LogOutput&) = delete;
    LogOutput& operator=(const LogOutput&) = delete;

private:
    struct State;  // log4cxx' appender, where there is one
    const std::unique_ptr<State> state_;
};

}  // namespace inscenter
