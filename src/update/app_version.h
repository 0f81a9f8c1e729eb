// AppVersion: a dotted release number (1.4.2) as an ordered list of non-negative 64-bit
// components. Built only through `parse`; compared with less-than, where a missing component
// counts as 0. Equality is equality of the component lists, so 1.2 and 1.2.0 are unequal while
// neither is less than the other.
#pragma once

#include <QString>
#include <cstdint>
#include <optional>
#include <vector>

namespace velt {

class AppVersion {
  public:
    // A pre-release or build suffix after "-" or "+" is ignored (2.1.0-beta is 2.1.0); empty
    // pieces between dots are dropped (1..2 is 1.2); every remaining piece must be a whole
    // decimal number that fits in 64 signed bits. No trimming: " 1.2" has no value.
    static std::optional<AppVersion> parse(const QString& text);

    const std::vector<std::int64_t>& components() const { return components_; }

    bool operator<(const AppVersion& other) const;
    bool operator==(const AppVersion& other) const = default;

  private:
    explicit AppVersion(std::vector<std::int64_t> components)
        : components_(std::move(components)) {}

    std::vector<std::int64_t> components_;
};

}  // namespace velt
