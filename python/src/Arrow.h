#pragma once

// Columns of Arrow's C data interface: two structs and a stream that are fixed for good, so no library is needed.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace binding {

// Names, order and types of these members are the interface's own.
extern "C" {
struct ArrowSchema {
    const char* format;
    const char* name;
    const char* metadata;
    std::int64_t flags;
    std::int64_t n_children;
    ArrowSchema** children;
    ArrowSchema* dictionary;
    void (*release)(ArrowSchema*);
    void* private_data;
};
struct ArrowArray {
    std::int64_t length;
    std::int64_t null_count;
    std::int64_t offset;
    std::int64_t n_buffers;
    std::int64_t n_children;
    const void** buffers;
    ArrowArray** children;
    ArrowArray* dictionary;
    void (*release)(ArrowArray*);
    void* private_data;
};
struct ArrowArrayStream {
    int (*get_schema)(ArrowArrayStream*, ArrowSchema*);
    int (*get_next)(ArrowArrayStream*, ArrowArray*);
    const char* (*get_last_error)(ArrowArrayStream*);
    void (*release)(ArrowArrayStream*);
    void* private_data;
};
}

/// A column as Arrow has it. `format` and `name` are alive until the process ends; the buffers as long as `owner`.
struct ArrowColumn {
    const char* format = "";
    const char* name = "";
    std::int64_t length = 0;
    std::int64_t nulls = 0;
    std::vector<const void*> buffers;
    std::shared_ptr<const void> owner;
    std::shared_ptr<const ArrowColumn> dictionary;  ///< null: the values stand in the column itself
};

/// A stream of one batch; its release gives back everything. Touches nothing of Python's, whatever thread uses it.
ArrowArrayStream* makeArrowStream(std::vector<ArrowColumn> columns, std::int64_t rows);

/// Ends a stream that makeArrowStream has made and that nobody has taken over.
void dropArrowStream(ArrowArrayStream* stream);

}  // namespace binding
