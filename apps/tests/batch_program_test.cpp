// SPDX-License-Identifier: MIT
// The program over many files, as a user runs it: results streamed as JSON, JSON Lines and CSV with memory
// that does not grow with the number of files, outputs that never appear half-written (full disk, Ctrl-C),
// the image formats in a mixed folder, binary images and PBM masks that read back to the same pixels, and
// the smaller switches (--version, --clip-roi, overlay switches, refused output paths).
#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <set>
#include <sstream>
#include <thread>

#include <scenes/synthetic_scene.h>

#include "program_fixture.h"

namespace ombrel {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::Slurp;

cv::Mat AsMat(const Buffer& b) {
    cv::Mat m(b.Height(), b.Width(), CV_8UC1);
    for (int y = 0; y < b.Height(); ++y) std::memcpy(m.ptr(y), b.Row(y), static_cast<size_t>(b.Width()));
    return m;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Files left half-written: the program's hidden temporaries.
size_t TemporariesIn(const fs::path& folder) {
    size_t found = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        found += entry.path().filename().string().rfind('.', 0) == 0 && entry.path().extension() == ".part";
    return found;
}

class Batches : public testing::ProgramTest {
  protected:
    void Write(const std::string& name, const std::string& bytes) const {
        std::ofstream(P(name), std::ios::binary) << bytes;
    }
    // `count` copies of small parts scenes in folder `name`, named so that they sort in order.
    void MakeFolder(const std::string& name, int count, int width = 64, int height = 48) {
        fs::create_directories(_dir / name);
        for (int i = 0; i < std::min(count, 4); ++i)
            ASSERT_TRUE(
                cv::imwrite(P(name + "/" + Name(i)), AsMat(*scenes::MakePartsScene(width, height, 2, i))));
        for (int i = 4; i < count; ++i) fs::copy_file(P(name + "/" + Name(i % 4)), P(name + "/" + Name(i)));
    }
    static std::string Name(int i) {
        char name[32];
        std::snprintf(name, sizeof name, "img%05d.png", i);
        return name;
    }

    // Starts the program without a shell; `limitBytes` > 0 caps the size of any file it writes (a full
    // disk, as the program sees it: writes fail with EFBIG).
    pid_t Start(const std::vector<std::string>& args, off_t limitBytes = 0) {
        std::vector<std::string> all = {OMBREL_PROGRAM};
        all.insert(all.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (std::string& a : all) argv.push_back(a.data());
        argv.push_back(nullptr);
        const std::string out = P("stdout"), err = P("stderr");
        const pid_t pid = ::fork();
        if (pid == 0) {
            const int o = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            const int e = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            ::dup2(o, 1);
            ::dup2(e, 2);
            if (limitBytes > 0) {
                ::signal(SIGXFSZ, SIG_IGN);
                const rlimit limit{static_cast<rlim_t>(limitBytes), static_cast<rlim_t>(limitBytes)};
                ::setrlimit(RLIMIT_FSIZE, &limit);
            }
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        return pid;
    }
    // Waits for it; the exit status (-signal when a signal ended it) and its peak resident size in KiB.
    int Finish(pid_t pid, long* peakKiB = nullptr) {
        int raw = 0;
        rusage usage{};
        ::wait4(pid, &raw, 0, &usage);
        _out = Slurp(P("stdout"));
        _err = Slurp(P("stderr"));
        if (peakKiB != nullptr) *peakKiB = usage.ru_maxrss;
        return WIFEXITED(raw) ? WEXITSTATUS(raw) : -WTERMSIG(raw);
    }
};

TEST_F(Batches, ResultsStreamAsJsonJsonLinesAndCsvInInputOrder) {
    MakeFolder("shots", 5, 160, 120);
    Write("shots/zz-broken.png", "\x89PNG\r\n\x1a\n broken");
    const std::string common = "blob " + P("shots") + " --band 0:100 --jobs 2 --json " + P("b.json") +
                               " --jsonl " + P("b.jsonl") + " --csv " + P("b.csv");
    ASSERT_EQ(Ombrel(common), 1) << _err;
    const json document = Json("b.json");
    ASSERT_EQ(document["images"].size(), 6u);
    EXPECT_EQ(
        document["summary"],
        (json{{"images", 6}, {"done", 5}, {"failed", 1}, {"failed_files", {P("shots/zz-broken.png")}}}));
    // One JSON Lines record and one CSV row per region, in input order, each naming its file.
    size_t regions = 0;
    std::vector<std::string> expectedFiles;
    for (const json& image : document["images"]) {
        if (!image.contains("blobs")) continue;
        for (size_t k = 0; k < image["blobs"]["regions"].size(); ++k) expectedFiles.push_back(image["file"]);
        regions += image["blobs"]["regions"].size();
    }
    ASSERT_GT(regions, 5u);
    const std::vector<std::string> records = Lines(Slurp(P("b.jsonl")));
    ASSERT_EQ(records.size(), regions + 1);  // and the failed file's line
    for (size_t i = 0; i < regions; ++i) {
        const json record = json::parse(records[i]);
        EXPECT_EQ(record["file"], expectedFiles[i]);
        EXPECT_TRUE(record.contains("label") && record["features"].contains("area")) << records[i];
    }
    EXPECT_EQ(json::parse(records.back())["file"], P("shots/zz-broken.png"));
    EXPECT_NE(json::parse(records.back())["error"].get<std::string>().find("PNG"), std::string::npos);
    const std::vector<std::string> rows = Lines(Slurp(P("b.csv")));
    ASSERT_EQ(rows.size(), regions + 2);  // the header, the regions, the failed file
    EXPECT_EQ(rows[0].rfind("file,label,kind,", 0), 0u) << rows[0];
    EXPECT_NE(rows[0].find(",features.area,"), std::string::npos) << rows[0];
    EXPECT_EQ(rows[0].substr(rows[0].size() - 6), ",error");
    const json first = document["images"][0]["blobs"]["regions"][0];
    EXPECT_EQ(rows[1].rfind(P("shots/img00000.png") + "," + std::to_string(first["label"].get<int>()) + "," +
                                first["kind"].get<std::string>() + ",",
                            0),
              0u)
        << rows[1];

    // Per image for the other commands; --summary-only keeps the terminal and the JSON to the summary.
    ASSERT_EQ(Ombrel("hist " + P("shots") + " --csv " + P("h.csv") + " --summary-only --json " + P("h.json")),
              1);
    EXPECT_EQ(Lines(Slurp(P("h.csv"))).size(), 7u);
    EXPECT_FALSE(Json("h.json").contains("images"));
    EXPECT_EQ(Json("h.json")["summary"]["done"], 5);
    EXPECT_EQ(_out, "");
    EXPECT_NE(_err.find("ombrel hist: 6 images, 5 done, 1 failed"), std::string::npos) << _err;
}

TEST_F(Batches, MemoryDoesNotGrowWithTheNumberOfImages) {
#if defined(OMBREL_SANITIZED_BUILD)
    GTEST_SKIP()
        << "AddressSanitizer keeps freed memory in quarantine, so resident size grows with the work done";
#endif
    MakeFolder("few", 100);
    MakeFolder("many", 1000);
    long peak[2] = {};
    for (int run = 0; run < 2; ++run) {
        const std::string folder = run == 0 ? "few" : "many";
        const pid_t pid = Start({"blob", P(folder), "--band", "0:100", "-q", "--json", P(folder + ".json"),
                                 "--jsonl", P(folder + ".jsonl"), "--csv", P(folder + ".csv")});
        ASSERT_EQ(Finish(pid, &peak[run]), 0) << _err;
    }
    EXPECT_EQ(Json("many.json")["images"].size(), 1000u);
    // Ten times the images, the same memory: within 10% and 2 MiB of noise.
    EXPECT_LE(peak[1], peak[0] + std::max(peak[0] / 10, 2048L))
        << "100 images: " << peak[0] << " KiB, 1000 images: " << peak[1] << " KiB";
    std::printf("peak resident size: 100 images %ld KiB, 1000 images %ld KiB\n", peak[0], peak[1]);
}

TEST_F(Batches, CtrlCFinishesTheFilesInFlightAndWritesWhatIsDone) {
    MakeFolder("shots", 400, 320, 240);
    const pid_t pid = Start({"blob", P("shots"), "--band", "0:100", "--jobs", "2", "--overlay", P("ov/"),
                             "--json", P("b.json"), "--jsonl", P("b.jsonl")});
    // Interrupt once a few overlays are in place.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    size_t done = 0;
    while (std::chrono::steady_clock::now() < deadline) {
        std::error_code ec;
        done = fs::exists(P("ov"))
                   ? static_cast<size_t>(std::distance(fs::directory_iterator(P("ov"), ec), {}))
                   : 0;
        if (done >= 4) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ASSERT_EQ(::kill(pid, SIGINT), 0);
    ASSERT_EQ(Finish(pid), 130) << _err;
    EXPECT_NE(_err.find("interrupted"), std::string::npos) << _err;
    const json document = Json("b.json");
    const size_t written = document["images"].size();
    EXPECT_GE(written, 4u);
    EXPECT_LT(written, 400u);
    EXPECT_EQ(document["summary"]["interrupted_by_signal"], SIGINT);
    EXPECT_EQ(document["summary"]["done"], written);
    // Everything finished is written, nothing else, and no file is half-written.
    EXPECT_EQ(TemporariesIn(_dir), 0u);
    std::set<std::string> overlays;
    for (const auto& entry : fs::directory_iterator(P("ov"))) overlays.insert(entry.path().filename());
    EXPECT_EQ(overlays.size(), written);
    for (size_t i = 0; i < written; ++i) {
        const std::string overlay = "img" + Name(static_cast<int>(i)).substr(3, 5) + "-overlay.png";
        EXPECT_TRUE(overlays.count(overlay)) << overlay;
        EXPECT_FALSE(cv::imread(P("ov/" + overlay)).empty()) << overlay;
    }
    size_t regions = 0;
    for (const json& image : document["images"]) regions += image["blobs"]["regions"].size();
    EXPECT_EQ(Lines(Slurp(P("b.jsonl"))).size(), regions);
}

TEST_F(Batches, AFullDiskLeavesNoPartialFile) {
    cv::Mat noise(600, 800, CV_8UC1);
    cv::randu(noise, 0, 256);  // incompressible: the PNG is about as large as the pixels
    ASSERT_TRUE(cv::imwrite(P("big.png"), noise));
    ASSERT_TRUE(cv::imwrite(P("small.png"), noise(cv::Rect(0, 0, 16, 16))));
    ASSERT_TRUE(cv::imwrite(P("old.png"), noise(cv::Rect(0, 0, 8, 8))));
    fs::copy_file(P("old.png"), P("out.png"));
    // Files may grow to 64 KiB: the transposed image does not fit.
    ASSERT_EQ(Finish(Start({"transpose", P("big.png"), "--op", "flip-lr", "--out", P("out.png")}, 64 << 10)),
              1);
    EXPECT_NE(_err.find("write error"), std::string::npos) << _err;
    EXPECT_EQ(Slurp(P("out.png")), Slurp(P("old.png")));  // the old file is untouched
    EXPECT_EQ(TemporariesIn(_dir), 0u);

    // A real small file system when the machine lets us mount one (root in CI).
    fs::create_directories(P("tiny"));
    if (::mount("tmpfs", P("tiny").c_str(), "tmpfs", 0, "size=128k") != 0)
        GTEST_SKIP() << "cannot mount a small tmpfs here; the file-size limit above stood in for a full disk";
    struct Unmount {
        std::string path;
        ~Unmount() { ::umount(path.c_str()); }
    } unmount{P("tiny")};
    ASSERT_EQ(Ombrel("transpose " + P("big.png") + " " + P("small.png") + " --op flip-lr --out " +
                     P("tiny/") + " --json " + P("tiny/t.json")),
              1);
    EXPECT_NE(_err.find(P("big.png") + ": " + P("tiny/big-flip-lr.png") + ": "), std::string::npos) << _err;
    EXPECT_NE(_err.find("write error"), std::string::npos) << _err;
    EXPECT_FALSE(fs::exists(P("tiny/big-flip-lr.png")));
    EXPECT_TRUE(fs::exists(P("tiny/small-flip-lr.png")));
    EXPECT_EQ(Json("tiny/t.json")["summary"]["failed"], 1);
    EXPECT_EQ(TemporariesIn(P("tiny")), 0u);
}

TEST_F(Batches, OutputsThatCannotBeWrittenAreRefusedBeforeAnyWork) {
    MakeFolder("shots", 3);
    const std::string unwritable = P("no-such-folder/r");
    for (const char* option : {"--json", "--jsonl", "--csv"}) {
        EXPECT_EQ(Ombrel("binmorph " + P("shots") + " --out " + P("out/") + " " + option + " " + unwritable),
                  2);
        EXPECT_NE(_err.find("ombrel binmorph: " + unwritable + ": cannot create"), std::string::npos) << _err;
        EXPECT_FALSE(fs::exists(P("out/img00000-binmorph.png"))) << option;
    }
    // Several inputs and one file name for their overlays: refused, not silently turned into a folder.
    EXPECT_EQ(Ombrel("blob " + P("shots") + " --band 0:100 --overlay " + P("all.png")), 1);
    EXPECT_NE(_err.find("must be a folder"), std::string::npos) << _err;
    EXPECT_FALSE(fs::exists(P("all.png")));
}

TEST_F(Batches, MixedFoldersReadEveryFormatAndNameWhatTheySkip) {
    const cv::Mat scene = AsMat(*scenes::MakePartsScene(96, 64, 3, 5));
    fs::create_directories(P("mixed"));
    for (const char* name : {"a.png", "b.tif", "c.bmp", "d.pgm", "e.tiff"})
        ASSERT_TRUE(cv::imwrite(P(std::string("mixed/") + name), scene));
    ASSERT_TRUE(cv::imwrite(P("mixed/f.jpg"), scene, {cv::IMWRITE_JPEG_QUALITY, 100}));
    Write("mixed/notes.txt", "not an image");
    ASSERT_EQ(Ombrel("hist " + P("mixed") + " --json " + P("h.json")), 0) << _err;
    EXPECT_NE(_err.find("skipped " + P("mixed/notes.txt")), std::string::npos) << _err;
    const json images = Json("h.json")["images"];
    ASSERT_EQ(images.size(), 6u);
    std::vector<std::string> formats;
    for (const json& image : images) formats.push_back(image["format"]);
    EXPECT_EQ(formats, (std::vector<std::string>{"PNG", "TIFF", "BMP", "PGM", "TIFF", "JPEG"}));
    for (size_t i = 0; i < 5; ++i) EXPECT_EQ(images[i]["histogram"], images[0]["histogram"]) << i;
}

TEST_F(Batches, BinaryImagesAre0And255AndPbmMasksReadBackToTheSamePixels) {
    const cv::Mat scene = AsMat(*scenes::MakePartsScene(120, 90, 4, 3));
    ASSERT_TRUE(cv::imwrite(P("scene.png"), scene));
    const cv::Mat inBand = scene <= 100;  // 0/255
    const int selected = cv::countNonZero(inBand);
    ASSERT_GT(selected, 0);
    // Written 0/255 by default, 0/1 with --raw-values.
    ASSERT_EQ(Ombrel("mask " + P("scene.png") + " --op band --band 0:100 --out " + P("band.png")), 0) << _err;
    EXPECT_EQ(cv::norm(cv::imread(P("band.png"), cv::IMREAD_UNCHANGED), inBand, cv::NORM_INF), 0);
    ASSERT_EQ(Ombrel("mask " + P("scene.png") + " --op band --band 0:100 --raw-values --out " + P("raw.png")),
              0);
    EXPECT_EQ(cv::norm(cv::imread(P("raw.png"), cv::IMREAD_UNCHANGED), inBand / 255, cv::NORM_INF), 0);
    ASSERT_EQ(Ombrel("binmorph " + P("scene.png") + " --op dilate --out " + P("dilated.png")), 0) << _err;
    const cv::Mat dilated = cv::imread(P("dilated.png"), cv::IMREAD_UNCHANGED);
    EXPECT_EQ(cv::countNonZero(dilated == 0) + cv::countNonZero(dilated == 255), dilated.total());

    // Program -> PBM -> program: the written mask selects the same pixels when read back through --mask.
    ASSERT_EQ(Ombrel("mask " + P("scene.png") + " --op band --band 0:100 --out " + P("m.pbm")), 0) << _err;
    ASSERT_EQ(Ombrel("mask " + P("scene.png") + " --mask " + P("m.pbm") + " --op band --band 0:255 --out " +
                     P("back.png") + " --json " + P("back.json")),
              0)
        << _err;
    EXPECT_EQ(Json("back.json")["images"][0]["non_zero_pixels"], selected);
    EXPECT_EQ(cv::norm(cv::imread(P("back.png"), cv::IMREAD_UNCHANGED), inBand, cv::NORM_INF), 0);
    // PBM -> program -> PBM: a mask read and written again is the same file.
    ASSERT_EQ(Ombrel("mask " + P("m.pbm") + " --op band --band 1:255 --out " + P("again.pbm")), 0) << _err;
    EXPECT_EQ(Slurp(P("again.pbm")), Slurp(P("m.pbm")));
    // And OpenCV sees the selected pixels white, as in the PNG.
    EXPECT_EQ(cv::norm(cv::imread(P("m.pbm"), cv::IMREAD_GRAYSCALE), inBand, cv::NORM_INF), 0);
}

TEST_F(Batches, TheProgressBarShowsOnATerminalButNotWithQuiet) {
    if (std::system("command -v script >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "no 'script' to give a terminal";
    MakeFolder("shots", 6);
    // util-linux's script runs the program on a pseudo-terminal and copies what it draws.
    auto onTerminal = [&](const std::string& args, const std::string& log) {
        const std::string command =
            "script -qc '" + std::string(OMBREL_PROGRAM) + " " + args + "' /dev/null > " + P(log);
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        return Slurp(P(log));
    };
    EXPECT_NE(onTerminal("hist " + P("shots"), "loud").find("processing ["), std::string::npos);
    const std::string quiet = onTerminal("hist " + P("shots") + " -q", "quiet");
    EXPECT_EQ(quiet.find("processing"), std::string::npos) << quiet;
    EXPECT_EQ(quiet, "");
}

TEST_F(Batches, SmallerSwitchesDoWhatTheySay) {
    EXPECT_EQ(Ombrel("--version"), 0);
    EXPECT_EQ(_out, "ombrel " OMBREL_TEST_VERSION "\n");

    const cv::Mat scene = AsMat(*scenes::MakePartsScene(200, 150, 4, 9));
    ASSERT_TRUE(cv::imwrite(P("scene.png"), scene));
    // Overlay labels (yellow) and axes (cyan) can be left off.
    auto count = [&](const std::string& file, cv::Vec3b bgr) {
        const cv::Mat overlay = cv::imread(P(file));
        cv::Mat hits;
        cv::inRange(overlay, bgr, bgr, hits);
        return cv::countNonZero(hits);
    };
    const cv::Vec3b yellow(0x00, 0xFF, 0xFF), cyan(0xFF, 0xC8, 0x00);
    ASSERT_EQ(Ombrel("blob " + P("scene.png") + " --band 0:100 --overlay " + P("full.png")), 0) << _err;
    ASSERT_EQ(
        Ombrel("blob " + P("scene.png") + " --band 0:100 --no-labels --no-axes --overlay " + P("bare.png")),
        0);
    EXPECT_GT(count("full.png", yellow), 0);
    EXPECT_GT(count("full.png", cyan), 0);
    EXPECT_EQ(count("bare.png", yellow), 0);
    EXPECT_EQ(count("bare.png", cyan), 0);

    // A region partly outside the image: refused, or clipped with --clip-roi and said so.
    ASSERT_EQ(Ombrel("hist " + P("scene.png") + " --roi 150,100,100,100"), 1);
    EXPECT_NE(_err.find("--clip-roi"), std::string::npos) << _err;
    ASSERT_EQ(Ombrel("hist " + P("scene.png") + " --roi 150,100,100,100 --clip-roi --json " + P("c.json")),
              0);
    EXPECT_NE(_err.find("clipped to 150,100,50,50"), std::string::npos) << _err;
    const json region = Json("c.json")["images"][0]["region"];
    EXPECT_EQ(region["width"], 50);
    EXPECT_EQ(region["height"], 50);
    EXPECT_EQ(region["clipped_from"]["width"], 100);
    EXPECT_EQ(Ombrel("hist " + P("scene.png") + " --roi 300,300,10,10 --clip-roi"), 1);
    EXPECT_NE(_err.find("no part of it lies inside the image"), std::string::npos) << _err;
}

}  // namespace
}  // namespace ombrel
