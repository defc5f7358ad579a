// SPDX-License-Identifier: MIT
// Running one subcommand over many images: folder expansion, output naming, a pool of worker threads (each
// file is processed by one thread with agents of its own), a progress bar on a terminal, and the summary.
#pragma once
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace ombrel::cli {

using Json = nlohmann::ordered_json;

// What processing one file gave.
struct FileOutcome {
    std::string input;
    std::string error;  // empty on success: one line, without the file name
    Json record;        // the file's entry in the JSON document
    std::string table;  // text for the terminal
    bool ok() const { return error.empty(); }
};

// The command line's inputs with each folder replaced by the image files in it (.png .pgm .pbm .ppm .pnm,
// not recursive, in name order). A folder without images stays in the list as itself, so that it fails
// with a message like any other unreadable input.
std::vector<std::string> ExpandInputs(const std::vector<std::string>& arguments);

// Where each input's output goes. With one input, `option` is the output file. With several, `option`
// is a folder (created when missing) and each output is named after its input's stem plus `suffix`
// ("-2", "-3" ... added when two inputs share a stem). Returns false with `error` set when the folder
// cannot be made.
bool OutputPaths(const std::string& option, const std::vector<std::string>& inputs, const std::string& suffix,
                 std::vector<std::string>* paths, std::string* error);

using FileTask = std::function<FileOutcome(const std::string& input, size_t index)>;

// Runs `task` on every input on `jobs` threads and returns the outcomes in input order. A task that throws
// fails only its own file. A progress bar is drawn on standard error when it is a terminal and there are at
// least four files.
std::vector<FileOutcome> RunBatch(const std::vector<std::string>& inputs, int jobs, const FileTask& task);

// Prints each file's table (unless `quiet`) and each failure as one line "ombrel CMD: FILE: problem" on
// standard error, then, for more than one file, a summary naming the failed files. Returns the exit status:
// 0 when every file succeeded, 1 otherwise.
int ReportBatch(const std::string& command, const std::vector<FileOutcome>& outcomes, bool quiet);

// Writes `document` as indented JSON; returns the problem or an empty string. Non-finite numbers are
// written as null.
std::string WriteJsonFile(const std::string& path, const Json& document);

// Writes the batch's JSON document to `path` (nothing when it is empty): {"tool": "ombrel CMD", "images":
// [...]} with each file's record, or its name and error. Returns `status`, or 1 when the file cannot be
// written.
// `fieldDescriptions`, when given, goes into the document as "field_descriptions" (what each field means,
// its formula and unit).
int WriteBatchJson(const std::string& command, const std::string& path,
                   const std::vector<FileOutcome>& outcomes, int status,
                   const Json& fieldDescriptions = Json());

// "ombrel CMD: WHAT: problem" on standard error.
void PrintError(const std::string& command, const std::string& what, const std::string& problem);

}  // namespace ombrel::cli
