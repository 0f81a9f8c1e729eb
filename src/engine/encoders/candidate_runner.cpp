#include "engine/encoders/candidate_runner.h"

#include "engine/core/errors.h"
#include "engine/install/file_operations.h"

namespace velt {

QStringList runCandidates(const std::vector<EncoderCandidate>& candidates, TemporaryFiles& cleanup,
                          const CandidateStep& step) {
    QStringList kept;
    for (const EncoderCandidate& candidate : candidates) {
        cleanup.add(candidate.url);
        try {
            kept.append(step(candidate));
        } catch (const FolderCompressorControlError&) {
            throw;
        } catch (const std::exception&) {
            // A failed or unreadable result only costs this candidate.
            removeQuietly(candidate.url);
        }
    }
    return kept;
}

void installSmallest(const QStringList& results, const QString& destination) {
    if (results.isEmpty())
        throw FileSystemError(
            FileSystemError::writeUnknown,
            QStringLiteral("No encoder produced a valid image for ") + destination,
            Message{Text::outputRejected, {}});
    moveOverDestination(smallestFile(results), destination);
}

}  // namespace velt
