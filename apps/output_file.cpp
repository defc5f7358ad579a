// SPDX-License-Identifier: MIT
#include "output_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

namespace ombrel::cli {
namespace fs = std::filesystem;
namespace {

// mkstemp creates files readable by the owner only; the renamed file gets the mode an ordinary create
// would have given it. The umask is read once, before any worker thread starts writing.
mode_t CreationMode() {
    static const mode_t mode = [] {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        return static_cast<mode_t>(0666 & ~mask);
    }();
    return mode;
}

std::string FolderOf(const std::string& path) {
    const fs::path parent = fs::path(path).parent_path();
    return parent.empty() ? std::string(".") : parent.string();
}

}  // namespace

std::string OutputFile::Open(const std::string& path) {
    Discard();
    CreationMode();
    std::error_code ec;
    if (fs::is_directory(path, ec)) return "cannot create: it is a folder";
    const fs::path target(path);
    std::string pattern =
        (fs::path(FolderOf(path)) / ("." + target.filename().string() + ".XXXXXX.part")).string();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int fd = ::mkstemps(name.data(), 5);
    if (fd < 0) return std::string("cannot create: ") + std::strerror(errno);
    _file = ::fdopen(fd, "wb");
    if (_file == nullptr) {
        const int saved = errno;
        ::close(fd);
        ::unlink(name.data());
        return std::string("cannot create: ") + std::strerror(saved);
    }
    _temporary = name.data();
    _target = path;
    _writeErrno = 0;
    return "";
}

bool OutputFile::Write(const void* data, size_t size) {
    if (_file == nullptr) return false;
    if (size == 0 || std::fwrite(data, 1, size, _file) == size) return true;
    if (_writeErrno == 0) _writeErrno = errno != 0 ? errno : EIO;
    return false;
}

std::string OutputFile::Commit() {
    if (_file == nullptr) return "write error: the file is not open";
    int error = _writeErrno;
    if (std::fflush(_file) != 0 && error == 0) error = errno;
    if (std::ferror(_file) && error == 0) error = EIO;
    if (error == 0 && ::fchmod(::fileno(_file), CreationMode()) != 0) error = errno;
    if (std::fclose(_file) != 0 && error == 0) error = errno;
    _file = nullptr;
    if (error == 0 && std::rename(_temporary.c_str(), _target.c_str()) != 0) error = errno;
    if (error != 0) {
        ::unlink(_temporary.c_str());
        _temporary.clear();
        return std::string("write error: ") + std::strerror(error);
    }
    _temporary.clear();
    return "";
}

void OutputFile::Discard() {
    if (_file != nullptr) std::fclose(_file);
    _file = nullptr;
    if (!_temporary.empty()) ::unlink(_temporary.c_str());
    _temporary.clear();
}

std::string WriteTextFile(const std::string& path, const std::string& text) {
    OutputFile file;
    const std::string problem = file.Open(path);
    if (!problem.empty()) return problem;
    file.Write(text.data(), text.size());
    return file.Commit();
}

std::string OutputPathProblem(const std::string& path) {
    if (path.empty()) return "no file name given";
    OutputFile probe;
    const std::string problem = probe.Open(path);
    return problem;  // the probe's temporary file is removed as it goes out of scope
}

}  // namespace ombrel::cli
