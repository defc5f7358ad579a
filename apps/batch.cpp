// SPDX-License-Identifier: MIT
#include "batch.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <new>
#include <thread>

#include <CLI/CLI.hpp>

#include "output_file.h"

namespace ombrel::cli {
namespace fs = std::filesystem;
namespace {

std::atomic<int> gSignal{0};

extern "C" void OnInterrupt(int signal) {
    gSignal.store(signal);
}

// Catches SIGINT and SIGTERM for the length of a batch. The handlers reset themselves, so a second signal
// ends the program at once for a user who does not want to wait for the files in flight.
class InterruptGuard {
  public:
    InterruptGuard() {
        gSignal.store(0);
        struct sigaction action {};
        action.sa_handler = OnInterrupt;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESETHAND;
        sigaction(SIGINT, &action, &_oldInt);
        sigaction(SIGTERM, &action, &_oldTerm);
    }
    ~InterruptGuard() {
        sigaction(SIGINT, &_oldInt, nullptr);
        sigaction(SIGTERM, &_oldTerm, nullptr);
    }
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

  private:
    struct sigaction _oldInt {};
    struct sigaction _oldTerm {};
};

bool Interrupted() {
    return gSignal.load() != 0;
}

bool HasImageExtension(const fs::path& path) {
    std::string ext = path.extension().string();
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    static const char* const kExtensions[] = {".png", ".pgm",  ".pbm", ".ppm",  ".pnm",
                                              ".tif", ".tiff", ".jpg", ".jpeg", ".bmp"};
    return std::any_of(std::begin(kExtensions), std::end(kExtensions),
                       [&](const char* e) { return ext == e; });
}

std::vector<std::string> ImagesInFolder(const std::string& folder, std::vector<std::string>* skipped) {
    std::vector<std::string> images;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        std::error_code typeError;
        if (it->is_regular_file(typeError) && HasImageExtension(it->path())) {
            images.push_back(it->path().string());
        } else {
            skipped->push_back(it->path().string());
        }
    }
    std::sort(images.begin(), images.end());
    std::sort(skipped->begin(), skipped->end());
    return images;
}

// Draws "[=====     ] done/total" on standard error, redrawing the same line.
class ProgressBar {
  public:
    ProgressBar(const std::string& label, size_t total, bool quiet)
        : _label(label), _total(total), _shown(!quiet && total >= 4 && ::isatty(STDERR_FILENO) == 1) {}
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

// Runs `task` on the inputs on worker threads and hands every outcome, in input order, to `emit` on the
// calling thread. Workers stay within a window of the oldest outcome not yet emitted, so at most that many
// outcomes are held. After a signal no new input is started; the ones in flight are finished and emitted.
void StreamOutcomes(const std::vector<std::string>& inputs, int jobs, bool quiet, const FileTask& task,
                    const std::function<void(FileOutcome&&)>& emit) {
    const size_t count = inputs.size();
    if (count == 0) return;
    const size_t threads = std::clamp<size_t>(static_cast<size_t>(std::max(jobs, 1)), 1, count);
    const size_t window = 2 * threads;
    constexpr auto kPoll = std::chrono::milliseconds(50);  // how soon a signal is noticed
    std::mutex mutex;
    std::condition_variable changed;
    std::map<size_t, FileOutcome> finished;
    size_t claimed = 0, emitted = 0;
    ProgressBar progress("processing", count, quiet);
    auto worker = [&] {
        for (;;) {
            size_t index;
            {
                std::unique_lock<std::mutex> lock(mutex);
                while (!Interrupted() && claimed < count && claimed >= emitted + window)
                    changed.wait_for(lock, kPoll);
                if (Interrupted() || claimed >= count) return;
                index = claimed++;
            }
            FileOutcome outcome = RunGuarded(task, inputs[index], index);
            outcome.input = inputs[index];
            progress.Advance();
            {
                std::lock_guard<std::mutex> lock(mutex);
                finished.emplace(index, std::move(outcome));
            }
            changed.notify_all();
        }
    };
    std::vector<std::thread> pool;
    for (size_t t = 0; t < threads; ++t) pool.emplace_back(worker);
    for (;;) {
        FileOutcome next;
        {
            std::unique_lock<std::mutex> lock(mutex);
            auto found = finished.end();
            while (emitted < count && (found = finished.find(emitted)) == finished.end()) {
                if (Interrupted() && emitted >= claimed) break;
                changed.wait_for(lock, kPoll);
            }
            if (found == finished.end()) break;
            next = std::move(found->second);
            finished.erase(found);
            ++emitted;
        }
        changed.notify_all();
        emit(std::move(next));
    }
    for (std::thread& thread : pool) thread.join();
}

std::string Indented(const std::string& text, int spaces) {
    const std::string pad(static_cast<size_t>(spaces), ' ');
    std::string out = pad;
    for (char c : text) {
        out += c;
        if (c == '\n') out += pad;
    }
    return out;
}

std::string Dump(const Json& value, int indent) {
    return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

// The JSON document written a record at a time: the same form as if it had been built whole and dumped.
class JsonDocumentWriter {
  public:
    std::string Open(const std::string& path, const std::string& tool, const Json& fieldDescriptions,
                     bool withImages) {
        if (path.empty()) return "";
        _path = path;
        const std::string problem = _file.Open(path);
        if (!problem.empty()) return problem;
        _withImages = withImages;
        Put("{\n  \"tool\": " + Dump(Json(tool), -1));
        if (!fieldDescriptions.is_null())
            Put(",\n  \"field_descriptions\": " + Indented(Dump(fieldDescriptions, 2), 2).substr(2));
        if (withImages) Put(",\n  \"images\": [");
        return "";
    }
    void Add(const Json& record) {
        if (!_file.IsOpen() || !_withImages) return;
        Put((_count++ == 0 ? "\n" : ",\n") + Indented(Dump(record, 2), 4));
    }
    // Closes the document with the summary and renames it into place; the problem or "".
    std::string Close(const Json& summary) {
        if (!_file.IsOpen()) return "";
        if (_withImages) Put(_count == 0 ? "]" : "\n  ]");
        Put(",\n  \"summary\": " + Indented(Dump(summary, 2), 2).substr(2) + "\n}\n");
        return _file.Commit();
    }
    const std::string& Path() const { return _path; }

  private:
    void Put(const std::string& text) { _file.Write(text.data(), text.size()); }
    OutputFile _file;
    std::string _path;
    bool _withImages = true;
    size_t _count = 0;
};

class JsonLinesWriter {
  public:
    std::string Open(const std::string& path) { return path.empty() ? "" : _file.Open(path); }
    void Add(const Json& record) {
        if (!_file.IsOpen()) return;
        const std::string line = Dump(record, -1) + "\n";
        _file.Write(line.data(), line.size());
    }
    std::string Close() { return _file.IsOpen() ? _file.Commit() : ""; }

  private:
    OutputFile _file;
};

// CSV rows: the columns are those of the first successful row ("file" first, "error" last); later rows
// fill them by name. Rows of failed files seen before the header is known wait for it.
class CsvWriter {
  public:
    std::string Open(const std::string& path) { return path.empty() ? "" : _file.Open(path); }
    void Add(const Json& row) {
        if (!_file.IsOpen()) return;
        const Json flat = FlattenRecord(row);
        if (_columns.empty()) {
            if (flat.contains("error") && flat.size() <= 2) {
                _waiting.push_back(flat);
                return;
            }
            StartColumns(flat);
            for (const Json& waiting : _waiting) Put(waiting);
            _waiting.clear();
        }
        Put(flat);
    }
    std::string Close() {
        if (!_file.IsOpen()) return "";
        if (_columns.empty()) {
            StartColumns(Json{{"file", ""}, {"error", ""}});
            for (const Json& waiting : _waiting) Put(waiting);
        }
        return _file.Commit();
    }

  private:
    void StartColumns(const Json& flat) {
        _columns.push_back("file");
        for (const auto& item : flat.items())
            if (item.key() != "file" && item.key() != "error") _columns.push_back(item.key());
        _columns.push_back("error");
        std::string header;
        for (size_t i = 0; i < _columns.size(); ++i) header += (i ? "," : "") + CsvField(Json(_columns[i]));
        Line(header);
    }
    void Put(const Json& flat) {
        std::string line;
        for (size_t i = 0; i < _columns.size(); ++i) {
            if (i) line += ',';
            auto found = flat.find(_columns[i]);
            if (found != flat.end()) line += CsvField(*found);
        }
        Line(line);
    }
    void Line(const std::string& text) {
        _file.Write(text.data(), text.size());
        _file.Write("\n", 1);
    }
    OutputFile _file;
    std::vector<std::string> _columns;
    std::vector<Json> _waiting;
};

void Flatten(const Json& value, const std::string& prefix, Json* out) {
    for (const auto& item : value.items()) {
        const std::string key = prefix.empty() ? item.key() : prefix + "." + item.key();
        if (item.value().is_object()) {
            Flatten(item.value(), key, out);
        } else {
            (*out)[key] = item.value();
        }
    }
}

std::string SummaryLine(size_t total, size_t done, const std::vector<std::string>& failed) {
    std::string summary = std::to_string(total) + " images, " + std::to_string(done) + " done, " +
                          std::to_string(failed.size()) + " failed";
    for (size_t i = 0; i < failed.size(); ++i) summary += (i == 0 ? ": " : ", ") + failed[i];
    return summary;
}

void PrintInterrupted(const std::string& command, size_t finished, size_t total) {
    std::fprintf(stderr, "ombrel %s: interrupted (signal %d): stopped after %zu of %zu images\n",
                 command.c_str(), gSignal.load(), finished, total);
}

}  // namespace

std::vector<std::string> ExpandInputs(const std::vector<std::string>& arguments) {
    std::vector<std::string> files;
    for (const std::string& argument : arguments) {
        std::error_code ec;
        if (fs::is_directory(argument, ec)) {
            std::vector<std::string> skipped;
            const std::vector<std::string> images = ImagesInFolder(argument, &skipped);
            if (!images.empty()) {
                for (const std::string& other : skipped) {
                    std::fprintf(
                        stderr, "ombrel: skipped %s: not an image file (%s)\n", other.c_str(),
                        fs::is_directory(other, ec) ? "folders are not searched" : "by its name's extension");
                }
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
    const bool isFolder = fs::is_directory(option, ec);
    if (!isFolder && (option.empty() || option.back() != '/')) {
        *error = "there are " + std::to_string(inputs.size()) + " images, so " + option +
                 " must be a folder: name an existing folder, or end the name with '/' to create one";
        return false;
    }
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

void AddStreamOptions(CLI::App* command, BatchOutputs* outputs) {
    command->add_option("--jsonl", outputs->jsonl,
                        "Write JSON Lines here: one record a line per image (per region for blob), streamed");
    command->add_option("--csv", outputs->csv,
                        "Write CSV here: one row per image (per region for blob), nested fields as a.b, "
                        "lists space-separated");
    command->add_flag("--summary-only", outputs->summaryOnly,
                      "Print only the batch summary and errors; --json then holds only the summary");
}

int RunStreamedBatch(const std::string& command, const std::vector<std::string>& inputs,
                     const BatchOutputs& outputs, const FileTask& task, const RowSplitter& rows) {
    JsonDocumentWriter document;
    JsonLinesWriter lines;
    CsvWriter csv;
    const std::pair<const std::string*, std::string> opened[] = {
        {&outputs.json,
         document.Open(outputs.json, "ombrel " + command, outputs.fieldDescriptions, !outputs.summaryOnly)},
        {&outputs.jsonl, lines.Open(outputs.jsonl)},
        {&outputs.csv, csv.Open(outputs.csv)}};
    for (const auto& [path, problem] : opened) {
        if (!problem.empty()) {
            PrintError(command, *path, problem);
            return 2;
        }
    }
    InterruptGuard guard;
    std::vector<std::string> failed;
    size_t finished = 0;
    StreamOutcomes(inputs, outputs.jobs, outputs.quiet || outputs.summaryOnly, task, [&](FileOutcome&& o) {
        ++finished;
        if (!o.ok()) {
            std::fflush(stdout);
            PrintError(command, o.input, o.error);
            failed.push_back(o.input);
            const Json failure{{"file", o.input}, {"error", o.error}};
            document.Add(failure);
            lines.Add(failure);
            csv.Add(failure);
            return;
        }
        if (!outputs.quiet && !outputs.summaryOnly && !o.table.empty()) std::fputs(o.table.c_str(), stdout);
        document.Add(o.record);
        if (!outputs.jsonl.empty() || !outputs.csv.empty()) {
            for (Json& row : rows ? rows(o.record) : std::vector<Json>{o.record}) {
                if (!row.contains("file")) {
                    Json withFile{{"file", o.input}};
                    withFile.update(row);
                    row = std::move(withFile);
                }
                lines.Add(row);
                csv.Add(row);
            }
        }
    });
    std::fflush(stdout);
    const int signal = gSignal.load();
    Json summary{{"images", inputs.size()},
                 {"done", finished - failed.size()},
                 {"failed", failed.size()},
                 {"failed_files", failed}};
    if (signal != 0) summary["interrupted_by_signal"] = signal;
    int status = failed.empty() ? 0 : 1;
    const std::pair<const std::string*, std::string> closed[] = {{&outputs.json, document.Close(summary)},
                                                                 {&outputs.jsonl, lines.Close()},
                                                                 {&outputs.csv, csv.Close()}};
    for (const auto& [path, problem] : closed) {
        if (problem.empty()) continue;
        PrintError(command, *path, problem);
        status = 1;
    }
    if (inputs.size() > 1 && (!(outputs.quiet && failed.empty()) || outputs.summaryOnly)) {
        std::fprintf(failed.empty() ? stdout : stderr, "ombrel %s: %s\n", command.c_str(),
                     SummaryLine(finished, finished - failed.size(), failed).c_str());
    }
    if (signal != 0) {
        PrintInterrupted(command, finished, inputs.size());
        return 128 + signal;
    }
    return status;
}

std::vector<FileOutcome> RunBatch(const std::vector<std::string>& inputs, int jobs, const FileTask& task,
                                  bool quiet) {
    InterruptGuard guard;
    std::vector<FileOutcome> outcomes;
    outcomes.reserve(inputs.size());
    StreamOutcomes(inputs, jobs, quiet, task, [&](FileOutcome&& o) { outcomes.push_back(std::move(o)); });
    return outcomes;
}

int BatchInterruptSignal() {
    return gSignal.load();
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
        std::fprintf(failed.empty() ? stdout : stderr, "ombrel %s: %s\n", command.c_str(),
                     SummaryLine(outcomes.size(), outcomes.size() - failed.size(), failed).c_str());
    }
    if (gSignal.load() != 0) return 128 + gSignal.load();
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
    return status == 0 ? 1 : status;
}

std::string WriteJsonFile(const std::string& path, const Json& document) {
    std::string text;
    try {
        text = Dump(document, 2) + "\n";
    } catch (const std::exception& e) {
        return std::string("cannot format the JSON: ") + e.what();
    }
    OutputFile file;
    const std::string problem = file.Open(path);
    if (!problem.empty()) return problem;
    file.Write(text.data(), text.size());
    return file.Commit();
}

std::string CsvField(const Json& value) {
    std::string text;
    if (value.is_null()) return "";
    if (value.is_string()) {
        text = value.get<std::string>();
    } else if (value.is_array()) {
        for (const Json& item : value)
            text += (text.empty() ? "" : " ") + (item.is_string() ? item.get<std::string>() : Dump(item, -1));
    } else {
        text = Dump(value, -1);
    }
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

Json FlattenRecord(const Json& record) {
    Json flat = Json::object();
    Flatten(record, "", &flat);
    return flat;
}

}  // namespace ombrel::cli
