// FileStates: what a running engine remembers about each file of its folder — files handled in
// their present version, outputs it wrote, files it just touched, files waiting to hold still,
// versions that failed and unsupported files it reported — and the decisions made from that
// memory alone. Keyed by the standardised path of the file; emptied by every start and stop.
//
// Thread-safety: owned by one engine context, used on its thread only.
#pragma once

#include "engine/core/content_fingerprint.h"
#include "engine/core/file_signature.h"

#include <QHashFunctions>
#include <QString>
#include <chrono>
#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

namespace velt {

using EngineClock = std::chrono::steady_clock;

// A file the engine just touched, left alone for a while.
struct RecentWrite {
    EngineClock::time_point date;
    FileSignature signature;
};

// An output the engine wrote, recognised by its content so it is never processed again.
struct OwnWrite {
    std::int64_t size = 0;
    std::optional<ContentFingerprint> fingerprint;  // may be filled in later
    EngineClock::time_point date;
};

class FileStates {
  public:
    // Handled: left alone until its signature changes.
    void markHandled(const QString& key, const FileSignature& signature);
    bool isHandled(const QString& key, const FileSignature& signature) const;

    // Stability. Whether the file has held this signature for `interval` since a scan first saw
    // it; it then leaves the waiting list. A new or changed signature starts the wait (false).
    bool heldStill(const QString& key, const FileSignature& signature, EngineClock::time_point now,
                   std::chrono::milliseconds interval);
    // Counts the file as seen with `signature` since `since` (a batch takes what is there now).
    void noteSeenSince(const QString& key, const FileSignature& signature,
                       EngineClock::time_point since);

    // The engine's own writes.
    void noteOwnWrite(const QString& key, const OwnWrite& write);
    void noteRecentWrite(const QString& key, const RecentWrite& write);
    enum class OwnWriteCheck { notOwn, ownUntouched, replacedBySomeone };
    // Whether the file is an untouched output of the engine. Without a readable fingerprint it
    // counts as untouched while its size is the written one or for `settling`; an own write
    // without a fingerprint yet takes the present one. `fingerprint` is only called for a file
    // the engine wrote. A replaced output is forgotten (own, recent and handled).
    OwnWriteCheck checkOwnWrite(
        const QString& key, const FileSignature& signature, EngineClock::time_point now,
        std::chrono::milliseconds settling,
        const std::function<std::optional<ContentFingerprint>()>& fingerprint);
    // Whether the engine touched the file less than `cooldown` ago and it kept the signature it
    // had then; an older or changed record is dropped.
    bool recentlyWritten(const QString& key, const FileSignature& signature,
                         EngineClock::time_point now, std::chrono::milliseconds cooldown);

    // A failed version is not tried again until the file changes, or, when the environment
    // caused the failure, until `retryAt`.
    void noteFailed(const QString& key, const FileSignature& signature,
                    std::optional<EngineClock::time_point> retryAt = std::nullopt);
    bool failedBefore(const QString& key, const FileSignature& signature,
                      EngineClock::time_point now);
    // The failed files whose time to be tried again has come.
    std::vector<QString> retriesDue(EngineClock::time_point now) const;

    // Whether this version of an unsupported file is new; it is remembered as reported.
    bool noteUnsupported(const QString& key, const FileSignature& signature);

    // The engine wrote a file of another name or removed this one: its own-write, recent-write
    // and handled records go.
    void forgetWrites(const QString& key);
    // The file must be looked at as new: its waiting, handled and recent-write records go.
    void forgetVersion(const QString& key);

    // The files waiting to hold still: a later scan must look at them even if nothing changed.
    std::vector<QString> waitingFiles() const;
    // Drops the recent-write records older than `cooldown` and the own-write records older
    // than `settling` (the output is known by its handled signature, its record in the registry
    // and its marker from then on). Returns whether any went.
    bool expireWrites(EngineClock::time_point now, std::chrono::milliseconds cooldown,
                      std::chrono::milliseconds settling);

    void clear();

  private:
    struct PendingFile {
        FileSignature signature;
        EngineClock::time_point firstSeenAt;
    };

    std::unordered_map<QString, FileSignature> handled_;
    std::unordered_map<QString, PendingFile> pending_;
    std::unordered_map<QString, OwnWrite> ownWrites_;
    std::unordered_map<QString, RecentWrite> recentWrites_;
    struct Failure {
        FileSignature signature;
        std::optional<EngineClock::time_point> retryAt;
    };
    std::unordered_map<QString, Failure> failed_;
    std::unordered_map<QString, FileSignature> unsupported_;
};

}  // namespace velt
