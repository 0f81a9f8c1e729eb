#include "engine/core/file_states.h"

namespace velt {

void FileStates::markHandled(const QString& key, const FileSignature& signature) {
    handled_[key] = signature;
}

bool FileStates::isHandled(const QString& key, const FileSignature& signature) const {
    const auto it = handled_.find(key);
    return it != handled_.end() && it->second == signature;
}

bool FileStates::heldStill(const QString& key, const FileSignature& signature,
                           EngineClock::time_point now, std::chrono::milliseconds interval) {
    const auto it = pending_.find(key);
    if (it != pending_.end() && it->second.signature == signature) {
        if (now - it->second.firstSeenAt < interval) return false;
        pending_.erase(it);
        return true;
    }
    pending_[key] = PendingFile{signature, now};
    return false;
}

void FileStates::noteSeenSince(const QString& key, const FileSignature& signature,
                               EngineClock::time_point since) {
    pending_[key] = PendingFile{signature, since};
}

void FileStates::noteOwnWrite(const QString& key, const OwnWrite& write) {
    ownWrites_[key] = write;
}

void FileStates::noteRecentWrite(const QString& key, const RecentWrite& write) {
    recentWrites_[key] = write;
}

FileStates::OwnWriteCheck FileStates::checkOwnWrite(
    const QString& key, const FileSignature& signature, EngineClock::time_point now,
    std::chrono::milliseconds settling,
    const std::function<std::optional<ContentFingerprint>()>& fingerprint) {
    const auto own = ownWrites_.find(key);
    if (own == ownWrites_.end()) return OwnWriteCheck::notOwn;
    const auto present = fingerprint();
    if (!present) {
        if (signature.size == own->second.size || now - own->second.date < settling)
            return OwnWriteCheck::ownUntouched;
    } else if (!own->second.fingerprint) {
        own->second.fingerprint = present;
        return OwnWriteCheck::ownUntouched;
    } else if (*own->second.fingerprint == *present) {
        return OwnWriteCheck::ownUntouched;
    }
    forgetWrites(key);
    return OwnWriteCheck::replacedBySomeone;
}

bool FileStates::recentlyWritten(const QString& key, const FileSignature& signature,
                                 EngineClock::time_point now, std::chrono::milliseconds cooldown) {
    const auto recent = recentWrites_.find(key);
    if (recent == recentWrites_.end()) return false;
    if (now - recent->second.date < cooldown && recent->second.signature == signature) return true;
    recentWrites_.erase(recent);
    return false;
}

void FileStates::noteFailed(const QString& key, const FileSignature& signature,
                            std::optional<EngineClock::time_point> retryAt) {
    failed_[key] = Failure{signature, retryAt};
}

bool FileStates::failedBefore(const QString& key, const FileSignature& signature,
                              EngineClock::time_point now) {
    const auto failed = failed_.find(key);
    if (failed == failed_.end()) return false;
    if (failed->second.signature == signature &&
        (!failed->second.retryAt || now < *failed->second.retryAt))
        return true;
    failed_.erase(failed);
    return false;
}

std::vector<QString> FileStates::retriesDue(EngineClock::time_point now) const {
    std::vector<QString> keys;
    for (const auto& [key, failure] : failed_)
        if (failure.retryAt && now >= *failure.retryAt) keys.push_back(key);
    return keys;
}

bool FileStates::noteUnsupported(const QString& key, const FileSignature& signature) {
    const auto known = unsupported_.find(key);
    if (known != unsupported_.end() && known->second == signature) return false;
    unsupported_[key] = signature;
    return true;
}

void FileStates::forgetWrites(const QString& key) {
    ownWrites_.erase(key);
    recentWrites_.erase(key);
    handled_.erase(key);
}

void FileStates::forgetVersion(const QString& key) {
    pending_.erase(key);
    handled_.erase(key);
    recentWrites_.erase(key);
}

std::vector<QString> FileStates::waitingFiles() const {
    std::vector<QString> keys;
    keys.reserve(pending_.size());
    for (const auto& [key, pending] : pending_) keys.push_back(key);
    return keys;
}

bool FileStates::expireWrites(EngineClock::time_point now, std::chrono::milliseconds cooldown,
                              std::chrono::milliseconds settling) {
    const auto before = recentWrites_.size() + ownWrites_.size();
    std::erase_if(recentWrites_, [&](const auto& e) { return now - e.second.date >= cooldown; });
    std::erase_if(ownWrites_, [&](const auto& e) { return now - e.second.date >= settling; });
    return recentWrites_.size() + ownWrites_.size() != before;
}

void FileStates::clear() {
    handled_.clear();
    pending_.clear();
    ownWrites_.clear();
    recentWrites_.clear();
    failed_.clear();
    unsupported_.clear();
}

}  // namespace velt
