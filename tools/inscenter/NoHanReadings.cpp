// In place of HanReadings.cpp where there is no ICU: Chinese names are then found by what records say of their
// spelling.

#include "tools/inscenter/HanReadings.h"

namespace inscenter {

std::string hanReading(std::string_view /*letter*/) {
    return {};
}

}  // namespace inscenter
