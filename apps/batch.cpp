// SPDX-License-Identifier: MIT
#include "batch.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <new>
#include <thread>

namespace ombrel::cli {
namespace fs = std::filesystem;
namespace {

bool HasImageExtension(const fs::path& path) {
    std::string ext = path.extension().string();
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext == ".png" || ext == ".pgm" || ext == ".pbm" || ext == ".ppm" || ext == ".pnm";
}

std::vector<std::string> ImagesInFolder(const std::string& folder) {
    std::vector<std::string> images;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        std::error_code typeError;
        if (it->is_regular_file(typeError) && HasImageExtension(it->path()))
            images.push_back(it->path().string());
    }
    std::sort(images.begin(), images.end());
    return images;
}

// Draws "[=====     ] done/total" on standard error, redrawing the same line.
class ProgressBar {
  public:
    ProgressBar(const std::string& label, size_t total)
        : _label(label), _total(total), _shown(total >= 4 && ::isatty(STDERR_FILENO) == 1) {}
    ~ProgressBar() {
        if (_shown) std::fprintf(stderr, "\r%*s\r", 40 + static_cast<int>(_label.size()), "");
    }
    void Advance() {
        std::lock_guard<std::mutex> lock(_mutex);
        ++_done;
        if (!_shown) return;
        constexpr size_t kWidth = 30;
        const size_t filled = _done * kWidth / _total;
        std::string bar(filled, '=');
        bar.resize(kWidth, ' ');
        std::fprintf(stderr, "\r%s [%s] %zu/%zu", _label.c_str(), bar.c_str(), _done, _total);
        std::fflush(stderr);
    }

  private:
    std::string _label;
    size_t _total;
    size_t _done = 0;
    bool _shown;
    std::mutex _mutex;
};

FileOutcome RunGuarded(const FileTask& task, const std::string& input, size_t index) {
    try {
        return task(input, index);
    } catch (const std::bad_alloc&) {
        return FileOutcome{input, "not enough memory to process this image", {}, {}};
    } catch (const std::exception& e) {
        return FileOutcome{input, e.what(), {}, {}};
    } catch (...) {
        return FileOutcome{input, "unexpected failure", {}, {}};
    }
}

}  // namespace

std::vector<std::string> ExpandInputs(const std::vector<std::string>& arguments) {
    std::vector<std::string> files;
    for (const std::string& argument : arguments) {
        std::error_code ec;
        if (fs::is_directory(argument, ec)) {
            const std::vector<std::string> images = ImagesInFolder(argument);
            if (!images.empty()) {
                files.insert(files.end(), images.begin(), images.end());
                continue;
            }
        }
        files.push_back(argument);
    }
    return files;
}

bool OutputPaths(const std::string& option, const std::vector<std::string>& inputs, const std::string& suffix,
                 std::vector<std::string>* paths, std::string* error) {
    paths->clear();
    if (inputs.size() == 1) {
        paths->push_back(option);
        return true;
    }
    std::error_code ec;
    fs::create_directories(option, ec);
    if (ec || !fs::is_directory(option)) {
        *error = "cannot use " + option + " as the output folder for several images" +
                 (ec ? ": " + ec.message() : std::string(": it is not a folder"));
        return false;
    }
    std::map<std::string, int> seen;
    for (const std::string& input : inputs) {
        const std::string stem = fs::path(input).stem().string();
        const int count = ++seen[stem];
        const std::string name = count == 1 ? stem : stem + "-" + std::to_string(count);
        paths->push_back((fs::path(option) / (name + suffix)).string());
    }
    return true;
}

std::vector<FileOutcome> RunBatch(const std::vector<std::string>& inputs, int jobs, const FileTask& task) {
    std::vector<FileOutcome> outcomes(inputs.size());
    ProgressBar progress("processing", inputs.size());
    std::atomic<size_t> next{0};
    auto worker = [&] {
        for (size_t i = next++; i < inputs.size(); i = next++) {
            outcomes[i] = RunGuarded(task, inputs[i], i);
            outcomes[i].input = inputs[i];
            progress.Advance();
        }
    };
    const size_t threads = std::clamp<size_t>(static_cast<size_t>(std::max(jobs, 1)), 1, inputs.size());
    if (threads <= 1) {
        worker();
        return outcomes;
    }
    std::vector<std::thread> pool;
    for (size_t t = 0; t < threads; ++t) pool.emplace_back(worker);
    for (std::thread& thread : pool) thread.join();
    return outcomes;
}

void PrintError(const std::string& command, const std::string& what, const std::string& problem) {
    std::fprintf(stderr, "ombrel %s: %s: %s\n", command.c_str(), what.c_str(), problem.c_str());
}

int ReportBatch(const std::string& command, const std::vector<FileOutcome>& outcomes, bool quiet) {
    std::vector<std::string> failed;
    for (const FileOutcome& outcome : outcomes) {
        if (!outcome.ok()) {
            std::fflush(stdout);
            PrintError(command, outcome.input, outcome.error);
            failed.push_back(outcome.input);
        } else if (!quiet && !outcome.table.empty()) {
            std::fputs(outcome.table.c_str(), stdout);
        }
    }
    std::fflush(stdout);
    if (outcomes.size() > 1 && !(quiet && failed.empty())) {
        std::string summary = std::to_string(outcomes.size()) + " images, " +
                              std::to_string(outcomes.size() - failed.size()) + " done, " +
                              std::to_string(failed.size()) + " failed";
        for (size_t i = 0; i < failed.size(); ++i) summary += (i == 0 ? ": " : ", ") + failed[i];
        std::fprintf(failed.empty() ? stdout : stderr, "ombrel %s: %s\n", command.c_str(), summary.c_str());
    }
    return failed.empty() ? 0 : 1;
}

int WriteBatchJson(const std::string& command, const std::string& path,
                   const std::vector<FileOutcome>& outcomes, int status, const Json& fieldDescriptions) {
    if (path.empty()) return status;
    Json document{{"tool", "ombrel " + command}};
    if (!fieldDescriptions.is_null()) document["field_descriptions"] = fieldDescriptions;
    document["images"] = Json::array();
    for (const FileOutcome& o : outcomes)
        document["images"].push_back(o.ok() ? o.record : Json{{"file", o.input}, {"error", o.error}});
    const std::string problem = WriteJsonFile(path, document);
    if (problem.empty()) return status;
    PrintError(command, path, problem);
    return 1;
}

std::string WriteJsonFile(const std::string& path, const Json& document) {
    std::string text;
    try {
        text = document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
    } catch (const std::exception& e) {
        return std::string("cannot format the JSON: ") + e.what();
    }
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) return std::string("cannot create: ") + std::strerror(errno);
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    const int savedErrno = errno;
    if (std::fclose(file) != 0 || !written) {
        std::remove(path.c_str());
        return std::string("write error: ") + std::strerror(savedErrno);
    }
    return "";
}

}  // namespace ombrel::cli
