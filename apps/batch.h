// SPDX-License-Identifier: MIT
// Running one subcommand over many images: folder expansion, output naming, a pool of worker threads (each
// file is processed by one thread with agents of its own), a progress bar on a terminal, and the results.
//
// Results are streamed: each file's table, JSON record, JSON Lines records and CSV rows are written as soon
// as the file and every file before it are done, and then dropped, so memory does not grow with the number
// of files. Workers run at most a small window of files (twice the job count) ahead of the oldest file not
// yet written, which keeps the output in input order.
//
// Ctrl-C (SIGINT) or SIGTERM during a batch: no new file is started, the files in flight are finished,
// everything finished is written (the JSON document is closed properly) and the run exits with status
// 128 + the signal number (130 for Ctrl-C). A second Ctrl-C ends the program at once.
#pragma once
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace CLI {
class App;
}

namespace ombrel::cli {

using Json = nlohmann::ordered_json;

// The exit status of a batch that a signal stopped: 128 + the signal.
inline constexpr int kInterruptedStatus = 130;

// What processing one file gave.
struct FileOutcome {
    std::string input;
    std::string error;  // empty on success: one line, without the file name
    Json record;        // the file's entry in the JSON document
    std::string table;  // text for the terminal
    bool ok() const { return error.empty(); }
};

// The command line's inputs with each folder replaced by the image files in it (.png .pgm .pbm .ppm .pnm
// .tif .tiff .jpg .jpeg .bmp, not recursive, in name order). Every other entry of such a folder is named on
// standard error as skipped. A folder without images stays in the list as itself, so that it fails with a
// message like any other unreadable input.
std::vector<std::string> ExpandInputs(const std::vector<std::string>& arguments);

// Where each input's output goes. With one input, `option` is the output file. With several, `option`
// must be a folder: an existing one, or a name ending in '/' (created when missing); each output is named
// after its input's stem plus `suffix` ("-2", "-3" ... added when two inputs share a stem). Returns false
// with `error` set when `option` names a file or the folder cannot be made.
bool OutputPaths(const std::string& option, const std::vector<std::string>& inputs, const std::string& suffix,
                 std::vector<std::string>* paths, std::string* error);

using FileTask = std::function<FileOutcome(const std::string& input, size_t index)>;

// The result files and switches every batch subcommand shares.
struct BatchOutputs {
    std::string json;   // --json: one document {"tool", "images": [...], "summary"}
    std::string jsonl;  // --jsonl: one JSON object a line
    std::string csv;    // --csv: one row a line, a header first
    bool summaryOnly = false;
    bool quiet = false;
    int jobs = 1;
    Json fieldDescriptions;  // when set, the --json document's "field_descriptions": each field's formula and
                             // unit
};

// Adds --jsonl, --csv and --summary-only to a subcommand (--json, --jobs and --quiet stay the command's own
// so that their help can say what the command writes).
void AddStreamOptions(CLI::App* command, BatchOutputs* outputs);

// `streams` with the command's own --json, --jobs and --quiet filled in.
inline BatchOutputs WithCommon(BatchOutputs streams, const std::string& json, int jobs, bool quiet) {
    streams.json = json;
    streams.jobs = jobs;
    streams.quiet = quiet;
    return streams;
}

// Turns one file's record into its JSON Lines records / CSV rows; by default the record itself. Blob
// analysis gives one row per region.
using RowSplitter = std::function<std::vector<Json>(const Json& record)>;

// Runs `task` on every input and streams the results as described above. Returns the exit status: 0 when
// every file succeeded, 1 when one failed or a result file could not be written, 2 when a result file
// cannot be created (said before any file is processed), 128 + signal when interrupted.
int RunStreamedBatch(const std::string& command, const std::vector<std::string>& inputs,
                     const BatchOutputs& outputs, const FileTask& task, const RowSplitter& rows = {});

// Runs `task` on every input on `jobs` threads and returns the outcomes in input order, for the commands
// whose result needs every file at once (a focus sweep). A task that throws fails only its own file.
// `quiet` hides the progress bar. After an interrupt the outcomes hold the files finished so far.
std::vector<FileOutcome> RunBatch(const std::vector<std::string>& inputs, int jobs, const FileTask& task,
                                  bool quiet = false);

// The signal that stopped the last batch, or 0.
int BatchInterruptSignal();

// Prints each file's table (unless `quiet`) and each failure as one line "ombrel CMD: FILE: problem" on
// standard error, then, for more than one file, a summary naming the failed files. Returns the exit status:
// 0 when every file succeeded, 1 otherwise, 128 + signal after an interrupt.
int ReportBatch(const std::string& command, const std::vector<FileOutcome>& outcomes, bool quiet);

// Writes `document` as indented JSON through a temporary file; returns the problem or an empty string.
// Non-finite numbers are written as null.
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

// One CSV field: quoted when it holds a comma, quote or line break. Numbers and strings as in JSON, arrays of
// values joined with spaces, null empty.
std::string CsvField(const Json& value);
// The record with nested objects flattened into "outer.inner" keys (arrays are kept as values).
Json FlattenRecord(const Json& record);

}  // namespace ombrel::cli
