// The engine's typed errors. Every failure of one file ends as one of these, is caught by the
// scan, logged, counted and reported; none of them ever stops the engine.
#pragma once

#include <QString>
#include <stdexcept>

namespace velt {

// The engine abandons a file: it is being stopped, or the source changed under its hands.
class FolderCompressorControlError : public std::exception {
  public:
    enum Kind { cancelled, sourceChanged };
    explicit FolderCompressorControlError(Kind kind) : kind_(kind) {}
    Kind kind() const { return kind_; }
    const char* what() const noexcept override {
        return kind_ == cancelled ? "Processing was cancelled"
                                  : "The source file changed during processing";
    }

  private:
    Kind kind_;
};

// A file-system or platform failure, with a readable English description for the log, the
// history and notifications.
class FileSystemError : public std::runtime_error {
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

    FileSystemError(Code code, const QString& description)
        : std::runtime_error(description.toStdString()), code_(code), description_(description) {}

    // From the errno of a failed call: "<operation> <path>: <strerror>".
    static FileSystemError fromErrno(int errorNumber, const QString& operation,
                                     const QString& path);

    Code code() const { return code_; }
    const QString& description() const { return description_; }

  private:
    Code code_;
    QString description_;
};

// The text shown to the user and logged for any exception a file's processing raised.
QString errorDescription(const std::exception& error);

// Whether the failure came from the machine rather than the file (no space, no permission, a
// read-only disk): the same file may well succeed once the cause is gone.
bool isEnvironmentFailure(const std::exception& error);

}  // namespace velt
