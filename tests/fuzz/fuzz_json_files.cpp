// The three JSON readers (settings, history, processed-file registry): whatever the file holds, a
// value or nothing, and what was read encodes again.
#include "engine/registry/processed_file_registry.h"
#include "model/config_file.h"
#include "model/history.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    if (const auto config = velt::decodeAppConfig(bytes)) velt::encodeAppConfig(*config);
    if (const auto history = velt::decodeHistory(bytes)) velt::encodeHistory(*history);
    if (const auto registry = velt::ProcessedFileRegistry::decode(bytes)) registry->encode();
    return 0;
}
