#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/record/IData.h"
#include "platform/record/RecordType.h"

namespace inscenter {

/// Why a line makes no record.
struct LineError {
    std::string field;  ///< empty when the line as a whole is at fault
    std::string reason;

    /// "field NAME: REASON", or the reason alone.
    std::string text() const;
};

/// What is worth a word about a file although its lines were taken.
class FileNotes {
public:
    /// A key that no field has. The first few names are kept.
    void addUnknownKey(std::string_view key);
    /// A number whose fraction was cut off because the field holds whole numbers.
    void addCutNumber(const std::string& field);

    /// One line for each kind of note; empty when there is nothing to say.
    std::vector<std::string> texts() const;

private:
    std::vector<std::string> unknownKeys_;
    bool moreUnknownKeys_ = false;
    std::map<std::string, std::size_t> cutNumbers_;
};

/// Puts a number into a field that holds numbers. False, with the reason in `error`, when it is out of the field's
/// range.
bool assignInteger(const mxservice::Field& field, mxservice::IData& record, std::int64_t value, LineError& error);
/// The same; a field of whole numbers takes the number truncated toward zero, as reading a document does.
bool assignNumber(const mxservice::Field& field, mxservice::IData& record, double value, FileNotes& notes,
                  LineError& error);

/// The fields without which a record of the class could not be told from others: its code, of instruments and ETFs its
/// market too.
std::vector<const mxservice::Field*> identityFields(const mxservice::RecordType& type);
/// False when one of them is empty.
bool hasIdentity(const mxservice::IData& record, const std::vector<const mxservice::Field*>& identity,
                 LineError& error);

}  // namespace inscenter
