// Running encoder candidates one after another: a candidate whose tool fails or whose output is
// not valid is dropped (its file removed) and the next one is tried; a stop ends everything.
#pragma once

#include "engine/encoders/encoder_support.h"
#include "engine/encoders/temporary_files.h"

#include <QString>
#include <QStringList>
#include <functional>
#include <vector>

namespace velt {

// Produces and checks the result of one candidate and returns the file to keep for it. Throws
// to drop the candidate.
using CandidateStep = std::function<QString(const EncoderCandidate& candidate)>;

// For each candidate in order: lists its output in `cleanup`, runs `step` and keeps its result.
// FolderCompressorControlError::cancelled is passed on at once; any other failure removes the
// candidate's output (errors ignored) and the loop goes on. Returns the kept results in order.
QStringList runCandidates(const std::vector<EncoderCandidate>& candidates, TemporaryFiles& cleanup,
                          const CandidateStep& step);

// The smallest kept result (ties keep the earlier), moved over `destination`. Throws
// FileSystemError(writeUnknown) when nothing was kept, and size read and move errors.
void installSmallest(const QStringList& results, const QString& destination);

}  // namespace velt
