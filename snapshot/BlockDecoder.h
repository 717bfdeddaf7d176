#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "snapshot/BlockReader.h"
#include "snapshot/CsvRecordReader.h"
#include "snapshot/FileNotes.h"
#include "snapshot/Snapshot.h"

namespace mxservice::snapshot {

/// A file that is being read, as long as one of its blocks is under way. Constant once the first block is.
struct ReadFile {
    std::string name;  ///< in issues
    SnapshotCatalogue catalogue = SnapshotCatalogue::Instruments;
    SnapshotFormat format = SnapshotFormat::Ndjson;
    CsvColumns columns;
};

/// A part of a file on its way to records. Its last one may have no text.
struct Block {
    std::shared_ptr<const ReadFile> file;
    TextBlock text;
    bool last = false;
    bool changed = false;  ///< of the last: the file was not of the size that it had at first
    std::string failure;   ///< of the last: why the file was given up
    FileNotes notes{0};    ///< what was met before its text
};

struct DecodedRecord {
    boost::shared_ptr<IData> record;
    std::uint64_t line;
};

/// What became of a block.
struct DecodedBlock {
    Block block;  ///< its text is let go of
    std::vector<DecodedRecord> records;
    FileNotes notes{0};  ///< the block's own and what its text brought
};

/// Makes the records of a block. Safe from any thread.
DecodedBlock decode(Block block);

}  // namespace mxservice::snapshot
