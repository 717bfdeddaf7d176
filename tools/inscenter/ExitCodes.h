#pragma once

/// What the process answers, as the help promises it to scripts; Tool.h says which goes before which.
namespace inscenter::exitcode {

constexpr int kAnswered = 0;
constexpr int kMissing = 1;
constexpr int kUnreadable = 2;
constexpr int kSkipped = 3;
constexpr int kUnwritten = 4;

}  // namespace inscenter::exitcode
