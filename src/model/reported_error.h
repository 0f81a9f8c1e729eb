// How an error tells the user what happened: every typed error of the program says it as a
// catalogue message (a code and its arguments), and the words are chosen where it is shown.
// Its what() stays English, for native.log.
#pragma once

#include "model/text_catalogue.h"

#include <exception>

namespace velt {

class ReportedError {
  public:
    virtual ~ReportedError() = default;
    // What happened, and so what the user can do about it.
    virtual Message reason() const = 0;
};

// The reason of a ReportedError; "not enough memory" for std::bad_alloc; for anything else a
// message that points to native.log, where what() is written.
Message reasonOf(const std::exception& error);

}  // namespace velt
