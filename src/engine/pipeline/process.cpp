#include "engine/pipeline/process.h"

#include "engine/errors.h"

namespace velt {

// The image codec layer is not part of this build yet: every candidate fails with a clear
// message instead of being touched.
FolderCompressionResult process(EngineContext& context, const QString& file) {
    context.checkpoint();
    throw FileSystemError(FileSystemError::readUnsupportedScheme,
                          QStringLiteral("Image encoding is not available in this build: ") + file);
}

}  // namespace velt
