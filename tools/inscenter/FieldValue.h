#pragma once

#include <cstddef>
#include <cstdint>
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

/// Puts the reason into `error` and answers false.
bool refuse(LineError& error, std::string field, std::string reason);

/// Something worth a word about a file although its lines were taken.
struct FileNote {
    std::size_t line;  ///< 0: the file as a whole
    std::string text;
};

/// Collects such notes, the first few of each kind in full.
class FileNotes {
public:
    /// Numbers cut from here on stand in that line.
    void beginLine(std::size_t number) { line_ = number; }
    /// A key that no field has.
    void addUnknownKey(std::string_view key);
    /// A number whose fraction was cut off because the field holds whole numbers.
    void addCutNumber(const std::string& field, double number);

    /// In the order of the lines, then what goes for the whole file.
    std::vector<FileNote> notes() const;

private:
    std::size_t line_ = 0;
    std::vector<std::string> unknownKeys_;
    bool moreUnknownKeys_ = false;
    std::vector<FileNote> cutNumbers_;
    std::size_t cuts_ = 0;
};

/// Puts a number into a field that holds numbers. False, with the reason in `error`, when it is out of the field's
/// range.
bool assignInteger(const mxservice::Field& field, mxservice::IData& record, std::int64_t value, LineError& error);
/// The same; a field of whole numbers takes the number truncated toward zero, as reading a document does.
bool assignNumber(const mxservice::Field& field, mxservice::IData& record, double value, FileNotes& notes,
                  LineError& error);

/// Puts the number YYYYMMDD into a field that holds a date, as text. False, with the reason in `error`, when it is
/// none.
bool assignDay(const mxservice::Field& field, mxservice::IData& record, std::int64_t value, LineError& error);

/// The fields of the class that hold dates.
std::vector<const mxservice::Field*> dateFields(const mxservice::RecordType& type);
/// False, with the reason in `error`, when one of them is neither empty nor a day of the calendar.
bool hasDays(const mxservice::IData& record, const std::vector<const mxservice::Field*>& dates, LineError& error);

/// The fields without which a record of the class could not be told from others: its code, of instruments and ETFs its
/// market too.
std::vector<const mxservice::Field*> identityFields(const mxservice::RecordType& type);
/// False when one of them is empty.
bool hasIdentity(const mxservice::IData& record, const std::vector<const mxservice::Field*>& identity,
                 LineError& error);

}  // namespace inscenter
