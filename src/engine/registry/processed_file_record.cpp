#include "engine/registry/processed_file_record.h"

#include <QStringList>

namespace velt {

QString rawValue(ProcessedDecision decision) {
    switch (decision) {
        case ProcessedDecision::compressed:
            return QStringLiteral("compressed");
        case ProcessedDecision::alreadyOptimal:
            return QStringLiteral("alreadyOptimal");
        case ProcessedDecision::existingOutputFresh:
            return QStringLiteral("existingOutputFresh");
        case ProcessedDecision::leftAnimated:
            return QStringLiteral("leftAnimated");
        case ProcessedDecision::failed:
            return QStringLiteral("failed");
        case ProcessedDecision::restored:
            return QStringLiteral("restored");
    }
    return {};
}

std::optional<ProcessedDecision> processedDecisionFromRawValue(const QString& raw) {
    for (auto decision : {ProcessedDecision::compressed, ProcessedDecision::alreadyOptimal,
                          ProcessedDecision::existingOutputFresh, ProcessedDecision::leftAnimated,
                          ProcessedDecision::failed, ProcessedDecision::restored}) {
        if (rawValue(decision) == raw) return decision;
    }
    return std::nullopt;
}

bool ProcessedFileRecord::describes(const FileSignature& signature) const {
    return modifiedAt && *modifiedAt == signature.modifiedAt &&
           createdAt == signature.attributeModifiedAt && fingerprint.size == signature.size &&
           resourceIdentifier == signature.resourceIdentifier;
}

bool ProcessedFileRecord::describes(const ContentFingerprint& present,
                                    const std::optional<QString>& presentResourceIdentifier) const {
    return fingerprint == present && resourceIdentifier == presentResourceIdentifier;
}

QString processingSettingsKey(const AppConfig& config) {
    const QualitySettings& q = config.qualities;
    QStringList parts = {
        QStringLiteral("v2"),
        QStringLiteral("preset:") + rawValue(config.preset),
        QStringLiteral("format:") + rawValue(config.formatStrategy),
        QStringLiteral("original:") + rawValue(config.originalPolicy),
        QStringLiteral("jpeg:") + QString::number(q.jpeg),
        QStringLiteral("png:") + QString::number(q.png),
        QStringLiteral("webp:") + QString::number(q.webp),
        QStringLiteral("avif:") + QString::number(q.avif),
        QStringLiteral("heic:") + QString::number(q.heic),
    };
    // The default policy adds nothing, so that keys written before the policy existed stay.
    if (config.metadataPolicy != MetadataPolicy::keepWithoutLocation)
        parts << QStringLiteral("metadata:") + rawValue(config.metadataPolicy);
    return parts.join(QLatin1Char('|'));
}

}  // namespace velt
