#include "update/app_version.h"

#include <QRegularExpression>
#include <algorithm>
#include <charconv>

namespace velt {
namespace {

std::optional<std::int64_t> wholeNumber(const QString& piece) {
    const QByteArray digits = piece.toUtf8();
    std::int64_t value = 0;
    const char* end = digits.constData() + digits.size();
    const auto [stop, error] = std::from_chars(digits.constData(), end, value);
    if (error != std::errc() || stop != end || value < 0) return std::nullopt;
    return value;
}

}  // namespace

std::optional<AppVersion> AppVersion::parse(const QString& text) {
    // Splitting with empty pieces dropped means a leading "-" or "+" keeps what follows it.
    static const QRegularExpression suffixSeparator(QStringLiteral("[-+]"));
    const QString kept = text.split(suffixSeparator, Qt::SkipEmptyParts).value(0);
    const QStringList pieces = kept.split(QLatin1Char('.'), Qt::SkipEmptyParts);
    if (pieces.isEmpty()) return std::nullopt;
    std::vector<std::int64_t> components;
    for (const QString& piece : pieces) {
        const auto value = wholeNumber(piece);
        if (!value) return std::nullopt;
        components.push_back(*value);
    }
    return AppVersion(std::move(components));
}

bool AppVersion::operator<(const AppVersion& other) const {
    const std::size_t length = std::max(components_.size(), other.components_.size());
    for (std::size_t i = 0; i < length; ++i) {
        const std::int64_t mine = i < components_.size() ? components_[i] : 0;
        const std::int64_t theirs = i < other.components_.size() ? other.components_[i] : 0;
        if (mine != theirs) return mine < theirs;
    }
    return false;
}

}  // namespace velt
