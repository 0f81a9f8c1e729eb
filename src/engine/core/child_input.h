// Feeding a child process's standard input through a pipe, so that an encoder can read a raster
// that never exists as a file. The bytes go over a piece at a time, as fast as the child reads
// them, without ever blocking the caller (it must go on watching the child's time and a stop).
// A child that stops reading (it failed, exited or closed its input) ends the feeding; it never
// ends this program, as SIGPIPE would.
//
// Used by ChildProcess on the thread that waits for the child.
#pragma once

#include "model/file_descriptor.h"

#include <cstdint>
#include <functional>
#include <span>

namespace velt {

// The bytes a child is to read, one piece per call (valid until the next call); an empty piece
// once everything has been given.
using InputChunks = std::function<std::span<const std::uint8_t>()>;

class InputFeed {
  public:
    // Takes the pipe's non-blocking write end. Without `input` the pipe is closed at once, so
    // the child reads an empty input.
    InputFeed(int pipe, const InputChunks& input);

    // The pipe while there is more to write, else -1.
    int fd() const { return pipe_.get(); }

    // Writes what the pipe takes now. After the last piece, or when the child reads no more
    // (broken pipe), the pipe is closed; the child's exit status tells how it went.
    void pump();

    // Ends the feeding: the pipe is closed, the child sees the end of its input.
    void stop();

  private:
    FileDescriptor pipe_;
    InputChunks input_;
    std::span<const std::uint8_t> pending_;
};

}  // namespace velt
