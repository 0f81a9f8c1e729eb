// The engine's typed errors. Every failure of one file ends as one of these, is caught by the
// scan, logged, counted and reported; none of them ever stops the engine. Each carries an
// English description for native.log and a reason (a catalogue message) for the user.
#pragma once

#include "model/reported_error.h"

#include <QString>
#include <optional>
#include <stdexcept>

namespace velt {

// The engine abandons a file: it is being stopped, or the source changed under its hands.
class FolderCompressorControlError : public std::exception, public ReportedError {
  public:
    enum Kind { cancelled, sourceChanged };
    explicit FolderCompressorControlError(Kind kind) : kind_(kind) {}
    Kind kind() const { return kind_; }
    const char* what() const noexcept override {
        return kind_ == cancelled ? "Processing was cancelled"
                                  : "The source file changed during processing";
    }
    Message reason() const override {
        return {kind_ == cancelled ? Text::compressionStopped : Text::sourceChanged, {}};
    }

  private:
    Kind kind_;
};

// A file-system or platform failure.
class FileSystemError : public std::runtime_error, public ReportedError {
  public:
    enum Code {
        noSuchFile,              // a file or folder that should exist does not
        readCorruptFile,         // the content cannot be understood
        readUnsupportedScheme,   // not a format the program reads
        readUnknown,             // reading failed otherwise
        writeUnknown,            // writing failed, or a tool reported failure
        writeUnsupportedScheme,  // no encoder for the requested format
        writeNoPermission,       // the folder or file may not be written (or is read-only)
        noSpace,                 // the disk or the user's quota is full
        launchFailed,            // an external program could not be started
    };

    // `reason` says what the user is told; without one it follows from the code.
    FileSystemError(Code code, const QString& description, std::optional<Message> reason = {})
        : std::runtime_error(description.toStdString()),
          code_(code),
          description_(description),
          reason_(std::move(reason)) {}

    // From the errno of a failed call: "<operation> <path>: <description of the errno>", always
    // in English; the reason names a full disk, a missing permission, a read-only disk or a
    // vanished file as such.
    static FileSystemError fromErrno(int errorNumber, const QString& operation,
                                     const QString& path);

    Code code() const { return code_; }
    const QString& description() const { return description_; }
    Message reason() const override;

  private:
    Code code_;
    QString description_;
    std::optional<Message> reason_;
};

// The text logged for any exception a file's processing raised (English).
QString errorDescription(const std::exception& error);

// What the user is told about a failure of `file`: the error's reason, unless the disk the file
// is on explains it better. A write that failed because the disk is full or read-only, or the
// folder may not be written, says so whichever step hit it.
Message failureReason(const std::exception& error, const QString& file);

// Whether the failure came from the machine rather than the file (no space, no permission, a
// read-only disk), judged by what the user is told of it: the same file may well succeed once
// the cause is gone.
bool isEnvironmentFailure(const Message& reason);

}  // namespace velt
