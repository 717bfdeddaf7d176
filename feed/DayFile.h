#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "feed/Replica.h"

namespace mxservice::feed {

/// The last good day with its changes in a file, as the messages they came in. A failure is logged and costs the file,
/// never the day. Not for several threads or processes.
class DayFile {
public:
    /// An empty path keeps nothing.
    explicit DayFile(std::string path) : path_(std::move(path)) {}

    /// What was kept, up to the first entry that is damaged, where the file is cut off; nothing where there is no file,
    /// or not even a day.
    std::vector<Entry> read();
    /// Writes a day and its changes in place of whatever is there: another file that then takes the name, so that one
    /// of the two is whole whenever the process or the machine dies.
    void write(const std::vector<Entry>& entries);
    /// Appends a change to the day that was read or written. It is not flushed: after a power cut the file may end
    /// earlier, with a state that there was.
    void append(const Entry& entry);

private:
    void cutOff(std::size_t sound);

    const std::string path_;
    bool whole_ = false;  // whether what the file holds ends where the next change goes
};

}  // namespace mxservice::feed
