// FileDescriptor: owns one POSIX file descriptor and closes it when it leaves scope.
#pragma once

#include <unistd.h>
#include <utility>

namespace velt {

class FileDescriptor {
  public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const { return fd_; }
    // Gives the descriptor up without closing it.
    int release() { return std::exchange(fd_, -1); }

  private:
    int fd_;
};

}  // namespace velt
