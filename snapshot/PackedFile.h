#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string_view>
#include <vector>

#include "snapshot/Snapshot.h"

namespace mxservice::snapshot {

/// Takes bytes and packs them, the same ones always alike.
class Packing {
public:
    virtual ~Packing() = default;

    /// Takes bytes off the front of `plain` and puts packed ones at `to`. Answers how many. `last`: none follow.
    virtual std::size_t step(std::string_view& plain, char* to, std::size_t room, bool last) = 0;
    /// Whether the step that was told of the last bytes has put everything.
    virtual bool finished() const = 0;
};

/// A file that is written from front to end.
class PackedFile {
public:
    /// Makes the file, or empties it. Throws std::runtime_error with the reason, as the others do.
    PackedFile(const std::filesystem::path& path, SnapshotPacking packing);

    void write(std::string_view bytes);
    /// Until then nothing is certain: what the system has kept back may be refused only now.
    void close();

private:
    void pack(std::string_view bytes, bool last);
    void put(const char* bytes, std::size_t size);

    std::ofstream file_;
    std::unique_ptr<Packing> packing_;  // null: as they are
    std::vector<char> buffer_;
};

}  // namespace mxservice::snapshot
