#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/record/RecordType.h"
#include "tools/inscenter/Output.h"

namespace inscenter {

/// A selection that names no field of the records, or no number where one is due.
class BadSelection : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

/// Which records of a list are wanted, as the command line says it.
struct SelectionTexts {
    std::vector<std::string> conditions;  ///< FIELD=VALUE, also with !=, <, <=, >, >= and ~ (holds the text)
    std::string fields;                   ///< names separated by commas; empty: the usual ones
    std::string sort;                     ///< a field name, "-" before it for descending
    std::optional<std::size_t> limit;
};

/// Which records of one class are wanted, in which order, and which of their fields. A basket counts as the number of
/// its components. An empty text is unknown: neither less nor greater than another.
class RecordSelection {
public:
    /// Every record, as it comes.
    RecordSelection() = default;
    /// Throws BadSelection, naming the fields that may have been meant.
    RecordSelection(const mxservice::RecordType& type, const SelectionTexts& texts);

    /// Takes out what is not wanted and sorts the rest; equal records keep their order. Answers how many the limit left
    /// out.
    std::size_t apply(std::vector<RecordPtr>& records) const;

    /// The class that was given, or null.
    const mxservice::RecordType* type() const { return type_; }

    /// The fields to show, in their order; empty for the usual ones.
    const std::vector<const mxservice::Field*>& fields() const { return fields_; }

private:
    void add(const std::string& text);

    const mxservice::RecordType* type_ = nullptr;
    std::vector<std::pair<const mxservice::Field*, std::string>> parts_;  // what fields must hold, folded
    std::string where_;  // what else must be, and the order, as a statement has them behind the table
    std::string order_;
    std::vector<const mxservice::Field*> fields_;
    std::optional<std::size_t> limit_;
};

}  // namespace inscenter
