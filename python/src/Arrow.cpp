#include "src/Arrow.h"

#include <cerrno>
#include <deque>
#include <utility>

namespace binding {
namespace {

constexpr std::int64_t kNullable = 2;

/// What a schema or an array keeps alive. A consumer may move children away and release them by themselves, so each has
/// its own.
template <class Struct>
struct Kept {
    std::vector<std::unique_ptr<Struct>> owned;
    std::vector<Struct*> children;
    std::vector<const void*> buffers;
    std::shared_ptr<const void> owner;
    std::unique_ptr<Struct> dictionary;
};

template <class Struct>
void release(Struct* object) {
    // A child without a release was moved away: it is the consumer's, and what we still have of it an empty shell.
    for (std::int64_t i = 0; i < object->n_children; ++i) {
        if (object->children[i]->release != nullptr) {
            object->children[i]->release(object->children[i]);
        }
    }
    if (object->dictionary != nullptr && object->dictionary->release != nullptr) {
        object->dictionary->release(object->dictionary);
    }
    delete static_cast<Kept<Struct>*>(object->private_data);
    object->release = nullptr;  // how consumers know; the struct itself is theirs
}

template <class Struct>
void keep(Struct& object, std::unique_ptr<Kept<Struct>> kept) {
    object.n_children = static_cast<std::int64_t>(kept->children.size());
    object.children = kept->children.data();
    object.dictionary = kept->dictionary.get();
    object.release = release<Struct>;
    object.private_data = kept.release();
}

template <class Struct>
void adopt(Kept<Struct>& kept, std::unique_ptr<Struct> child) {
    kept.children.push_back(child.get());
    kept.owned.push_back(std::move(child));
}

std::unique_ptr<ArrowSchema> schemaOf(const ArrowColumn& column) {
    auto schema = std::make_unique<ArrowSchema>();
    auto kept = std::make_unique<Kept<ArrowSchema>>();
    if (column.dictionary) {
        kept->dictionary = schemaOf(*column.dictionary);
    }
    schema->format = column.format;
    schema->name = column.name;
    schema->flags = kNullable;
    keep(*schema, std::move(kept));
    return schema;
}

std::unique_ptr<ArrowArray> arrayOf(const ArrowColumn& column) {
    auto array = std::make_unique<ArrowArray>();
    auto kept = std::make_unique<Kept<ArrowArray>>();
    kept->buffers = column.buffers;
    kept->owner = column.owner;
    if (column.dictionary) {
        kept->dictionary = arrayOf(*column.dictionary);
    }
    array->length = column.length;
    array->null_count = column.nulls;
    array->n_buffers = static_cast<std::int64_t>(kept->buffers.size());
    array->buffers = kept->buffers.data();
    keep(*array, std::move(kept));
    return array;
}

/// The batch is a struct with a child for each column.
struct Batch {
    std::vector<ArrowColumn> columns;
    std::int64_t rows;
    bool given = false;
};

Batch& batchOf(ArrowArrayStream* stream) {
    return *static_cast<Batch*>(stream->private_data);
}

// Called by C and whatever calls that: nothing may be thrown through it, and memory is all that may lack.

int getSchema(ArrowArrayStream* stream, ArrowSchema* out) {
    try {
        auto kept = std::make_unique<Kept<ArrowSchema>>();
        for (const ArrowColumn& column : batchOf(stream).columns) {
            adopt(*kept, schemaOf(column));
        }
        *out = ArrowSchema{};
        out->format = "+s";
        out->name = "";
        keep(*out, std::move(kept));
        return 0;
    } catch (...) {
        return ENOMEM;
    }
}

int getNext(ArrowArrayStream* stream, ArrowArray* out) {
    *out = ArrowArray{};  // released already: the end of the stream
    Batch& batch = batchOf(stream);
    if (std::exchange(batch.given, true)) {
        return 0;
    }
    try {
        auto kept = std::make_unique<Kept<ArrowArray>>();
        for (const ArrowColumn& column : batch.columns) {
            adopt(*kept, arrayOf(column));
        }
        kept->buffers.push_back(nullptr);  // of a struct, which rows are there: all
        out->length = batch.rows;
        out->n_buffers = 1;
        out->buffers = kept->buffers.data();
        keep(*out, std::move(kept));
        return 0;
    } catch (...) {
        return ENOMEM;
    }
}

const char* getLastError(ArrowArrayStream*) {
    return "out of memory";
}

/// Arrays that were given out outlive it: each keeps its buffers itself.
void releaseStream(ArrowArrayStream* stream) {
    delete &batchOf(stream);
    stream->release = nullptr;
}

}  // namespace

ArrowArrayStream* makeArrowStream(std::vector<ArrowColumn> columns, std::int64_t rows) {
    auto batch = std::make_unique<Batch>(Batch{std::move(columns), rows});
    auto* const stream = new ArrowArrayStream{getSchema, getNext, getLastError, releaseStream, nullptr};
    stream->private_data = batch.release();  // last: until there is a stream nobody else frees the batch
    return stream;
}

void dropArrowStream(ArrowArrayStream* stream) {
    if (stream->release != nullptr) {
        stream->release(stream);
    }
    delete stream;
}

}  // namespace binding
