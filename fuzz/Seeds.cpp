// Writes the seeds of the document fuzzer anew: a document of each class, and some that must be refused.

#include <filesystem>
#include <fstream>
#include <iostream>

#include "platform/record/Records.h"
#include "tests/RandomRecords.h"

namespace {

void write(const std::filesystem::path& file, char picked, const std::string& document) {
    std::ofstream(file, std::ios::binary) << picked << document;
}

/// A document with one more of itself within, `depth` levels down.
bson::BSONObj nested(int depth) {
    bson::BSONObjBuilder builder;
    builder.append("code", "600000");
    if (depth > 1) {
        builder.append("inner", nested(depth - 1));
    }
    return builder.obj();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: fuzz_seeds DIRECTORY\n";
        return 2;
    }
    const std::filesystem::path directory = argv[1];
    std::filesystem::create_directories(directory);
    RandomRecords random(1);
    char picked = '0';
    for (const mxservice::RecordType* const type : mxservice::TypeManager::instance()->types()) {
        std::string empty;
        std::string filled;
        type->make()->appendDocument(empty);
        random.fill(type->make())->appendDocument(filled);
        write(directory / type->name(), picked, filled);
        write(directory / (type->name() + "-cut"), picked, empty.substr(0, empty.size() / 2));
        ++picked;
    }
    for (const int depth : {2, bson::kMaxDocumentDepth}) {
        const bson::BSONObj document = nested(depth);
        write(directory / ("depth-" + std::to_string(depth)), '0',
              std::string(document.objdata(), static_cast<std::size_t>(document.objsize())));
    }
    write(directory / "empty", '0', std::string("\5\0\0\0\0", 5));
    write(directory / "huge-length", '0', std::string("\xFF\xFF\xFF\x7F\2code\0\xFF\xFF\xFF\x7F", 15));
    return 0;
}
