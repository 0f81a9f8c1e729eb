#include "model/reported_error.h"

#include <new>

namespace velt {

Message reasonOf(const std::exception& error) {
    if (const auto* reported = dynamic_cast<const ReportedError*>(&error))
        return reported->reason();
    if (dynamic_cast<const std::bad_alloc*>(&error)) return {Text::outOfMemory, {}};
    return {Text::unexpectedError, {}};
}

}  // namespace velt
