#include <boost/filesystem.hpp>

#include <string>
#include <vector>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/ClientState.h"
#include "system/Path.h"

// The removal of databases from the disk.

namespace mxservice {
namespace {

/// A name beside the directory's own that nothing has: what bears it already is not ours to take away, be it a plain
/// file.
boost::filesystem::path freeNameBeside(const boost::filesystem::path& directory) {
    namespace fs = boost::filesystem;
    fs::path name(".");
    name += directory.filename();
    name += ".cleared";
    fs::path free = directory.parent_path() / name;
    boost::system::error_code error;
    for (int i = 2; fs::symlink_status(free, error).type() != fs::file_not_found; ++i) {
        free = directory.parent_path() / name;
        free += "-" + std::to_string(i);
    }
    return free;
}

/// Removes a directory. First it gets a name that is no database's: it vanishes for other processes in one step, and
/// when this one dies half way, no database is left without one of its files. What is left then has "OvIns" in its name
/// still, and goes with the next clearing.
boost::system::error_code removeWhole(const boost::filesystem::path& directory) {
    namespace fs = boost::filesystem;
    boost::system::error_code error;
    fs::path aside = directory;
    if (directory.filename().native().front() != '.') {
        aside = freeNameBeside(directory);
        fs::rename(directory, aside, error);
    }
    fs::remove_all(error ? directory : aside, error);
    if (error && aside != directory) {
        boost::system::error_code ignored;
        fs::rename(aside, directory, ignored);
    }
    return error;
}

}  // namespace

void CClientInstrumentCenter::clearPersist(const std::string& path) {
    namespace fs = boost::filesystem;
    if (!sys::isPath(path)) {
        throw fs::filesystem_error("clearPersist",
                                   boost::system::errc::make_error_code(boost::system::errc::illegal_byte_sequence));
    }
    // Names stay as the system has them: not all that Windows has can be had in the code page of a process.
    const fs::path::string_type marked = fs::path("OvIns").native();
    std::vector<fs::path> doomed;
    for (const fs::directory_entry& entry : fs::directory_iterator(sys::pathOf(path).native())) {
        boost::system::error_code unreadable;
        if (entry.status(unreadable).type() == fs::directory_file &&
            entry.path().filename().native().find(marked) != fs::path::string_type::npos) {
            doomed.push_back(entry.path());
        }
    }
    for (const fs::path& directory : doomed) {
        const boost::system::error_code error = removeWhole(directory);
        if (error) {
            // "patch" is the wording that operators' scripts look for.
            PM_CENTER_LOG(kLogError, kClientSource,
                          formatted("[clientIns] clear persist failed, patch = %1%, error = %2%",
                                    sys::textOf(directory.filename().native()), error.message()));
        }
    }
}

}  // namespace mxservice
