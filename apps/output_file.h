// SPDX-License-Identifier: MIT
// A file that appears whole or not at all. Everything the program writes goes first to a hidden temporary
// file in the target's own folder (".NAME.XXXXXX.part") and is renamed over the target once it is complete,
// so that a failed, full-disk or interrupted run never leaves a truncated image or JSON behind: readers see
// the old file or the new one. A file that is not committed is removed when the object goes away.
#pragma once
#include <cstdio>
#include <string>

namespace ombrel::cli {

class OutputFile {
  public:
    OutputFile() = default;
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile() { Discard(); }

    // Creates the temporary file beside `path`. Empty on success, else the problem ("cannot create: ...").
    std::string Open(const std::string& path);
    std::FILE* Stream() const { return _file; }
    bool IsOpen() const { return _file != nullptr; }
    // Writes `size` bytes; false (and the error kept for Commit) when the write fails.
    bool Write(const void* data, size_t size);
    // Flushes, closes and renames into place. Empty on success, else the problem; the temporary file is
    // removed on failure.
    std::string Commit();
    // Closes and removes the temporary file (nothing when it is not open).
    void Discard();

  private:
    std::FILE* _file = nullptr;
    std::string _target;
    std::string _temporary;
    int _writeErrno = 0;
};

// Writes `text` to `path` through an OutputFile; empty on success, else the problem.
std::string WriteTextFile(const std::string& path, const std::string& text);

// Empty when a file can be created at `path` (its folder exists and is writable, and `path` is not a
// folder), else the problem. Nothing is left behind: used to refuse an output before any work is done.
std::string OutputPathProblem(const std::string& path);

}  // namespace ombrel::cli
