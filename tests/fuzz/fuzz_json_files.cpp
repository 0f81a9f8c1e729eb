// The three JSON readers (settings, history, the legacy processed-file registry): whatever the
// file holds, a value or nothing, and what was read encodes again.
#include "engine/registry/legacy_registry_file.h"
#include "model/config_file.h"
#include "model/history.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    if (const auto config = velt::decodeAppConfig(bytes)) velt::encodeAppConfig(*config);
    if (const auto history = velt::decodeHistory(bytes)) velt::encodeHistory(*history);
    velt::decodeLegacyRegistry(bytes);
    return 0;
}
