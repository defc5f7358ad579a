// SPDX-License-Identifier: MIT
// Option parsing and the batch machinery: what users type is accepted or refused in words, and a batch
// keeps going past a failing file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "batch.h"
#include "options.h"

namespace ombrel::cli {
namespace {

namespace fs = std::filesystem;

TEST(OptionValues, AcceptTheirRangeAndExplainRefusals) {
    std::string error;
    EXPECT_EQ(ParseBand("0:255", &error)->high, 255);
    EXPECT_EQ(ParseBand("7:7", &error)->low, 7);
    for (const char* bad : {"10:5", "-1:3", "0:256", "a:b", "1:2:3", "5", ":5", "5:", " 1:2"}) {
        error.clear();
        EXPECT_FALSE(ParseBand(bad, &error).has_value()) << bad;
        EXPECT_NE(error.find("band"), std::string::npos) << bad;
    }
    const auto region = ParseRegion("10,20,300,200", &error);
    ASSERT_TRUE(region);
    EXPECT_EQ(region->AsRect(), (Rect{10, 20, 310, 220}));
    for (const char* bad : {"1,2,3", "0,0,0,5", "-1,0,5,5", "1,2,3,4,5", "1,,3,4", "99999999999,0,1,1"}) {
        EXPECT_FALSE(ParseRegion(bad, &error).has_value()) << bad;
    }
    EXPECT_TRUE(ParseStep("64,1", &error).has_value());
    EXPECT_FALSE(ParseStep("0,1", &error).has_value());
    EXPECT_FALSE(ParseStep("65,1", &error).has_value());

    // A region must lie wholly inside the image; the message gives both sizes.
    EXPECT_EQ(RegionProblem(Region{0, 0, 640, 480}, 640, 480), "");
    EXPECT_EQ(RegionProblem(Region{1, 0, 640, 480}, 640, 480),
              "region 1,0,640,480 lies outside the 640 x 480 image");
    EXPECT_NE(RegionProblem(Region{0, 479, 1, 2}, 640, 480), "");
    EXPECT_NE(RegionProblem(Region{1000000, 0, 1000000, 1}, 640, 480), "");
}

class BatchFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        _dir = fs::temp_directory_path() / ("ombrel_batch_" + std::to_string(::getpid()));
        fs::create_directories(_dir / "shots");
        fs::create_directories(_dir / "empty");
        for (const char* name : {"b.pgm", "a.png", "notes.txt", "c.PNG"})
            std::ofstream(_dir / "shots" / name) << "x";
    }
    void TearDown() override { fs::remove_all(_dir); }
    fs::path _dir;
};

TEST_F(BatchFiles, FoldersExpandToTheirImagesAndOutputsGetDistinctNames) {
    const std::string shots = (_dir / "shots").string(), empty = (_dir / "empty").string();
    const std::vector<std::string> files = ExpandInputs({shots, "single.png", empty});
    ASSERT_EQ(files.size(), 5u);
    EXPECT_EQ(fs::path(files[0]).filename(), "a.png");
    EXPECT_EQ(fs::path(files[1]).filename(), "b.pgm");
    EXPECT_EQ(fs::path(files[2]).filename(), "c.PNG");
    EXPECT_EQ(files[3], "single.png");
    EXPECT_EQ(files[4], empty);  // kept, so that it fails with a message of its own

    std::vector<std::string> paths;
    std::string error;
    ASSERT_TRUE(OutputPaths("one.png", {"x/in.png"}, "-overlay.png", &paths, &error));
    EXPECT_EQ(paths, std::vector<std::string>{"one.png"});
    // Several inputs need a folder: an existing one, or a new one named with a trailing '/'. A plain name
    // (say "all.png") is refused rather than silently becoming a folder.
    const std::string out = (_dir / "out").string();
    EXPECT_FALSE(OutputPaths(out, {"x/in.png", "y/in.pgm"}, "-overlay.png", &paths, &error));
    EXPECT_NE(error.find("must be a folder"), std::string::npos) << error;
    EXPECT_FALSE(fs::exists(out));
    ASSERT_TRUE(
        OutputPaths(out + "/", {"x/in.png", "y/in.pgm", "z/other.png"}, "-overlay.png", &paths, &error));
    EXPECT_EQ(fs::path(paths[0]).filename(), "in-overlay.png");
    EXPECT_EQ(fs::path(paths[1]).filename(), "in-2-overlay.png");
    EXPECT_EQ(fs::path(paths[2]).filename(), "other-overlay.png");
    EXPECT_TRUE(fs::is_directory(out));
    ASSERT_TRUE(OutputPaths(out, {"x/in.png", "y/in.pgm"}, "-overlay.png", &paths, &error));  // exists now
    // A file where the folder should be is refused.
    EXPECT_FALSE(OutputPaths((_dir / "shots" / "a.png").string() + "/", {"p", "q"}, ".png", &paths, &error));
    EXPECT_NE(error.find("output folder"), std::string::npos);
}

TEST(Batch, EveryFileIsProcessedOnceInOrderAndAFailureStaysWithItsFile) {
    std::vector<std::string> inputs;
    for (int i = 0; i < 40; ++i) inputs.push_back("file" + std::to_string(i));
    for (int jobs : {1, 3}) {
        std::atomic<int> calls{0};
        const auto outcomes = RunBatch(inputs, jobs, [&](const std::string& input, size_t index) {
            ++calls;
            if (index == 7) throw std::runtime_error("broken on purpose");
            if (index == 9) throw 42;
            FileOutcome outcome;
            outcome.record = Json{{"index", index}, {"name", input}};
            return outcome;
        });
        EXPECT_EQ(calls.load(), 40);
        ASSERT_EQ(outcomes.size(), 40u);
        for (size_t i = 0; i < 40; ++i) {
            EXPECT_EQ(outcomes[i].input, inputs[i]);
            if (i == 7) {
                EXPECT_EQ(outcomes[i].error, "broken on purpose");
            } else if (i == 9) {
                EXPECT_EQ(outcomes[i].error, "unexpected failure");
            } else {
                EXPECT_TRUE(outcomes[i].ok());
                EXPECT_EQ(outcomes[i].record["index"], i);
            }
        }
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        EXPECT_EQ(ReportBatch("test", outcomes, true), 1);
        testing::internal::GetCapturedStdout();
        const std::string err = testing::internal::GetCapturedStderr();
        EXPECT_NE(err.find("ombrel test: file7: broken on purpose\n"), std::string::npos) << err;
        EXPECT_NE(err.find("40 images, 38 done, 2 failed: file7, file9"), std::string::npos) << err;
    }
}

TEST_F(BatchFiles, StreamedDocumentHasTheFormOfOneBuiltWholeAndCsvFieldsAreQuoted) {
    std::vector<std::string> inputs;
    for (int i = 0; i < 25; ++i) inputs.push_back("in" + std::to_string(i));
    auto task = [](const std::string& input, size_t index) {
        if (index % 7 == 3) throw std::runtime_error("bad, \"really\"");
        FileOutcome outcome;
        outcome.record = Json{{"file", input}, {"n", index}, {"box", {{"w", 2 * index}}}, {"list", {1, 2}}};
        return outcome;
    };
    BatchOutputs outputs;
    outputs.json = (_dir / "streamed.json").string();
    outputs.csv = (_dir / "rows.csv").string();
    outputs.jobs = 3;
    outputs.quiet = true;
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunStreamedBatch("test", inputs, outputs, task), 1);
    testing::internal::GetCapturedStderr();
    const auto outcomes = RunBatch(inputs, 1, task, true);
    EXPECT_EQ(WriteBatchJson("test", (_dir / "whole.json").string(), outcomes, 0), 0);
    auto slurp = [&](const char* name) {
        std::ifstream in(_dir / name);
        return std::string(std::istreambuf_iterator<char>(in), {});
    };
    // The streamed document is the whole one, byte for byte, with the summary added at the end.
    const std::string streamed = slurp("streamed.json"), whole = slurp("whole.json");
    ASSERT_GT(whole.size(), 4u);
    EXPECT_EQ(streamed.substr(0, whole.size() - 3), whole.substr(0, whole.size() - 3));
    const Json summary = Json::parse(streamed)["summary"];
    EXPECT_EQ(summary["done"], 21);
    EXPECT_EQ(summary["failed_files"], (Json{"in3", "in10", "in17", "in24"}));
    // CSV: flattened columns, a row per file in order, failures in the error column, quoted as needed.
    std::istringstream rows(slurp("rows.csv"));
    std::string header, row;
    std::getline(rows, header);
    EXPECT_EQ(header, "file,n,box.w,list,error");
    std::vector<std::string> lines;
    while (std::getline(rows, row)) lines.push_back(row);
    ASSERT_EQ(lines.size(), 25u);
    EXPECT_EQ(lines[2], "in2,2,4,1 2,");
    EXPECT_EQ(lines[3], "in3,,,,\"bad, \"\"really\"\"\"");
    EXPECT_EQ(CsvField(Json(nullptr)), "");
    EXPECT_EQ(CsvField(Json("two\nlines")), "\"two\nlines\"");
    EXPECT_EQ(CsvField(Json(0.5)), "0.5");
}

}  // namespace
}  // namespace ombrel::cli
