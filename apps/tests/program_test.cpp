// SPDX-License-Identifier: MIT
// The ombrel program run as a user runs it: on generated images, with its JSON checked against the
// library's own agents run in-process, its images decoded by OpenCV, and damaged inputs and bad options
// giving one clear line and a non-zero status.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <set>

#include <ombrel/blob/blob.h>
#include <ombrel/pixelops/arith.h>
#include <ombrel/pixelops/histogram.h>
#include <ombrel/pixelops/mask.h>
#include <scenes/synthetic_scene.h>

namespace ombrel {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

struct RunResult {
    int status = -1;
    std::string out, err;
};

std::string Slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

cv::Mat AsMat(const Buffer& b) {
    return cv::Mat(b.Height(), b.Width(), CV_8UC1, b.BaseAddr(), b.Pitch()).clone();
}

class Program : public ::testing::Test {
  protected:
    void SetUp() override {
        _dir = fs::temp_directory_path() / ("ombrel_cli_" + std::to_string(::getpid()) + "_" +
                                            ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(_dir);
    }
    void TearDown() override { fs::remove_all(_dir); }
    std::string P(const std::string& name) const { return (_dir / name).string(); }

    // Runs the program with `args` (a shell-quoted string), optionally behind a shell prefix.
    RunResult Ombrel(const std::string& args, const std::string& prefix = "") const {
        const std::string command =
            prefix + " " + OMBREL_PROGRAM + " " + args + " >" + P("stdout") + " 2>" + P("stderr");
        const int raw = std::system(command.c_str());
        return RunResult{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, Slurp(P("stdout")), Slurp(P("stderr"))};
    }
    json Json(const std::string& name) const { return json::parse(Slurp(P(name))); }
    void Write(const std::string& name, const std::string& bytes) const {
        std::ofstream(P(name), std::ios::binary) << bytes;
    }

    fs::path _dir;
};

// The settings `ombrel blob` documents: moments, boundary, radii, length/width and grey sums on.
std::unique_ptr<BlobAgent> LibraryBlob(Buffer* image, Point origin, const ROI& roi, BlobResult* result,
                                       int low, int high, int minArea, bool noBorder) {
    std::unique_ptr<BlobAgent> agent(BlobFact(image, origin, roi, result, low, high));
    agent->SetAreaLimits(minArea, 2147483647);
    agent->SetFilterFlags(BLOB_FILTER_BORDER_CHILDREN | BLOB_FILTER_GREY |
                          (noBorder ? BLOB_FILTER_BORDER : 0));
    agent->SetOptions(BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS | BLOB_OPT_BOUNDARY | BLOB_OPT_RADII |
                      BLOB_OPT_LENGTH_WIDTH);
    EXPECT_EQ(agent->Go(), 0);
    return agent;
}

TEST_F(Program, BlobReportsWhatTheLibraryFindsAndDrawsIt) {
    auto scene = scenes::MakePartsScene(320, 240, 5, 7);
    ASSERT_TRUE(cv::imwrite(P("parts.png"), AsMat(*scene)));
    const RunResult run = Ombrel("blob " + P("parts.png") +
                                 " --band 0:100 --roi 4,3,300,230 --min-area 30 --no-border "
                                 "--features area,centroid_x,centroid_y,perimeter,mean_grey,holes --json " +
                                 P("b.json") + " --overlay " + P("o.png"));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("objects"), std::string::npos);
    const json image = Json("b.json")["images"][0];
    EXPECT_EQ(image["region"]["width"], 300);

    BlobResult result;
    auto agent = LibraryBlob(scene.get(), Point{4, 3}, ROI(300, 230), &result, 0, 100, 30, true);
    const json& blobs = image["blobs"];
    ASSERT_EQ(blobs["regions"].size(), static_cast<size_t>(result.NParts()));
    int objects = 0;
    for (const json& region : blobs["regions"]) {
        Blob* blob = result.ByLabel(region["label"]);
        ASSERT_NE(blob, nullptr);
        objects += blob->Color() == 0;
        EXPECT_EQ(region["kind"], blob->Color() == 0 ? "object" : "hole");
        Rect box;
        blob->BoundingBox(box);
        EXPECT_EQ(region["bounding_box"],
                  (json{{"left", box.left}, {"top", box.top}, {"right", box.right}, {"bottom", box.bottom}}));
        EXPECT_EQ(region["parent"], blob->GetFeat(BF_PARENT_LABEL));
        EXPECT_EQ(region["features"]["area"], blob->GetFeat(BF_AREA));
        EXPECT_EQ(region["features"]["centroid_x"], blob->GetFeat(BF_CENTROID_X));
        EXPECT_EQ(region["features"]["centroid_y"], blob->GetFeat(BF_CENTROID_Y));
        EXPECT_EQ(region["features"]["perimeter"], blob->GetFeat(BF_PERIMETER));
        EXPECT_EQ(region["features"]["mean_grey"], blob->GetFeat(BF_MEAN_GREY));
        EXPECT_EQ(region["children"].size(), static_cast<size_t>(blob->GetFeat(BF_HOLES)));
    }
    EXPECT_EQ(blobs["objects"], objects);
    EXPECT_GT(objects, 0);
    size_t topLevel = 0;
    for (Blob* c = result.Root()->FirstChild(); c != nullptr; c = c->NextSibling()) ++topLevel;
    EXPECT_EQ(blobs["tree"].size(), topLevel);

    // The overlay is a colour PNG of the image's size: the image in grey where nothing is drawn, and the
    // drawing in its palette, with at least the objects' boundaries in green.
    const cv::Mat overlay = cv::imread(P("o.png"), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(overlay.type(), CV_8UC3);
    ASSERT_EQ(overlay.cols, 320);
    ASSERT_EQ(overlay.rows, 240);
    const std::set<uint32_t> palette = {0x00FF40, 0xFF9900, 0xFF2020, 0x00C8FF, 0xFFFF00, 0x4060FF};
    double greenPixels = 0, perimeters = 0;
    for (int y = 0; y < 240; ++y) {
        for (int x = 0; x < 320; ++x) {
            const cv::Vec3b bgr = overlay.at<cv::Vec3b>(y, x);
            const uint32_t rgb = uint32_t{bgr[2]} << 16 | uint32_t{bgr[1]} << 8 | bgr[0];
            if (bgr[0] == bgr[1] && bgr[1] == bgr[2]) {
                ASSERT_EQ(bgr[0], scene->Row(y)[x]) << x << "," << y;
            } else {
                ASSERT_TRUE(palette.count(rgb)) << std::hex << rgb << " at " << std::dec << x << "," << y;
                greenPixels += rgb == 0x00FF40;
            }
        }
    }
    for (const json& region : blobs["regions"])
        perimeters += region["kind"] == "object" ? region["features"]["perimeter"].get<double>() : 0;
    EXPECT_GT(greenPixels, perimeters / 2);
}

TEST_F(Program, HistogramMaskAndArithmeticMatchTheLibrary) {
    auto scene = scenes::MakeTexturedScene(200, 150, 11);
    auto other = scenes::MakeTexturedScene(200, 150, 12);
    ASSERT_TRUE(cv::imwrite(P("a.pgm"), AsMat(*scene)));
    ASSERT_TRUE(cv::imwrite(P("b.png"), AsMat(*other)));
    cv::Mat maskImage(80, 100, CV_8UC1, cv::Scalar(0));
    for (int y = 0; y < 80; ++y)
        for (int x = 0; x < 100; ++x)
            maskImage.at<uint8_t>(y, x) = ((x - 50) * (x - 50) + (y - 40) * (y - 40) < 1200) ? 255 : 0;
    ASSERT_TRUE(cv::imwrite(P("m.png"), maskImage));
    Buffer mask(100, 80, EIGHT);
    for (int y = 0; y < 80; ++y) std::memcpy(mask.Row(y), maskImage.ptr(y), 100);
    const ROI maskedRoi(&mask);

    // hist over a masked region, 64 bins.
    ASSERT_EQ(Ombrel("hist " + P("a.pgm") + " --roi 10,20,100,80 --mask " + P("m.png") +
                     " --bins 64 --json " + P("h.json"))
                  .status,
              0);
    const json h = Json("h.json")["images"][0]["histogram"];
    std::vector<int> bins;
    std::unique_ptr<HistogramAgent> hist(
        HistogramFact(scene.get(), HISTRES_64, Point{10, 20}, maskedRoi, &bins));
    ASSERT_EQ(hist->Go(), 0);
    EXPECT_EQ(h["counts"].get<std::vector<int>>(), bins);
    // The agent's own figures are written apart from numpy's (count, mean, std, ... beside them).
    EXPECT_EQ(h["agent"]["pixel_count"], hist->PixelCount());
    EXPECT_EQ(h["agent"]["pixel_sum"], hist->PixelSum());
    EXPECT_EQ(h["agent"]["mean"], hist->Mean());
    EXPECT_EQ(h["agent"]["std_dev"], hist->StdDev());
    EXPECT_EQ(h["agent"]["median"], hist->Median());

    // mask with the band operation, written with the agent's own 0/1 values (0/255 is the default).
    ASSERT_EQ(Ombrel("mask " + P("a.pgm") + " --roi 10,20,100,80 --mask " + P("m.png") +
                     " --op band --band 90:160 --raw-values --out " + P("masked.png"))
                  .status,
              0);
    Buffer expected(100, 80, EIGHT);
    std::unique_ptr<MaskAgent> maskAgent(
        MaskFact(scene.get(), &expected, Point{10, 20}, maskedRoi, 90, 160, MASK_BAND));
    ASSERT_EQ(maskAgent->Go(), 0);
    const cv::Mat masked = cv::imread(P("masked.png"), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(masked.type(), CV_8UC1);
    EXPECT_EQ(cv::norm(masked, AsMat(expected), cv::NORM_INF), 0.0);

    // arith diff with a gain and an offset.
    ASSERT_EQ(Ombrel("arith diff " + P("a.pgm") + " " + P("b.png") + " --gain 2.5 --offset 3 --out " +
                     P("d.png") + " --json " + P("d.json"))
                  .status,
              0);
    Buffer difference(200, 150, EIGHT);
    std::unique_ptr<ArithAgent> arith(ArithFact(scene.get(), other.get(), _ARITH_DIFF, 2.5f, 3, &difference));
    ASSERT_EQ(arith->Go(), 0);
    ArithResults words;
    arith->GetResults(&words);
    EXPECT_EQ(cv::norm(cv::imread(P("d.png"), cv::IMREAD_UNCHANGED), AsMat(difference), cv::NORM_INF), 0.0);
    EXPECT_EQ(Json("d.json")["result"]["output_sum"], static_cast<uint32_t>(words.word[0]));
}

TEST_F(Program, DemoWritesTheSceneItsOverlayAndTheLibrarysFindings) {
    const RunResult run = Ombrel("demo --out " + P("demo"));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_NE(run.out.find(P("demo/overlay.png")), std::string::npos);
    const json report = Json("demo/report.json");
    const int w = report["scene"]["width"], h = report["scene"]["height"];
    auto scene = scenes::MakePartsScene(w, h, static_cast<int>(report["scene"]["parts_drawn"].size()),
                                        report["scene"]["seed"]);
    EXPECT_EQ(cv::norm(cv::imread(P("demo/scene.png"), cv::IMREAD_UNCHANGED), AsMat(*scene), cv::NORM_INF),
              0.0);
    // Break detection finds the cut trace, inside the cut, and nothing else.
    const json& breaks = report["breaks"];
    ASSERT_GE(breaks["break_pixels"].get<int>(), 1);
    for (const json& p : breaks["breaks"]) {
        EXPECT_EQ(p["y"], breaks["cut"]["y"]);
        EXPECT_GE(p["x"].get<int>(), breaks["cut"]["x"].get<int>());
        EXPECT_LT(p["x"].get<int>(), breaks["cut"]["x"].get<int>() + breaks["cut"]["length"].get<int>());
    }
    const cv::Mat overlay = cv::imread(P("demo/overlay.png"), cv::IMREAD_UNCHANGED);
    EXPECT_EQ(overlay.type(), CV_8UC3);
    EXPECT_EQ(overlay.size(), cv::Size(w, h));
    BlobResult result;
    auto agent = LibraryBlob(scene.get(), Point{}, ROI(w, h), &result, report["blobs"]["band"][0],
                             report["blobs"]["band"][1], 1, false);
    EXPECT_EQ(report["blobs"]["regions"].size(), static_cast<size_t>(result.NParts()));
    // Every drawn part is found, with its hole when it has one.
    EXPECT_GE(report["blobs"]["objects"].get<size_t>(), report["scene"]["parts_drawn"].size());
    int holed = 0;
    for (const json& part : report["scene"]["parts_drawn"]) holed += part["hole_radius"] > 0;
    EXPECT_EQ(report["blobs"]["holes"], holed);
}

// A truncated, a corrupt and a non-image file among good ones: each bad file gets one line naming it,
// the good ones are still processed, the summary lists the failures, and the status is 1.
TEST_F(Program, BatchesGoOnPastBadFilesAndNameThem) {
    fs::create_directories(_dir / "shots");
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(cv::imwrite(P("shots/good" + std::to_string(i) + ".png"),
                                AsMat(*scenes::MakePartsScene(120, 90, 2, i))));
    }
    const std::string png = Slurp(P("shots/good0.png"));
    Write("shots/cut.png", png.substr(0, png.size() / 2));
    std::string corrupt = png;
    corrupt[png.size() / 2] ^= 0x5A;
    Write("shots/corrupt.png", corrupt);
    Write("shots/notes.pgm", "these are my notes\n");
    Write("shots/short.pgm", "P5\n10 10\n255\nabc");

    const std::string common = "blob " + P("shots") + " --band 0:100 --overlay " + P("ov/");
    const RunResult serial = Ombrel(common + " --json " + P("serial.json"));
    const RunResult parallel = Ombrel(common + " --jobs 2 --json " + P("parallel.json"));
    for (const RunResult& run : {serial, parallel}) {
        EXPECT_EQ(run.status, 1);
        const std::string prefix = "ombrel blob: " + P("shots/");
        EXPECT_NE(run.err.find(prefix + "cut.png: truncated PNG"), std::string::npos) << run.err;
        EXPECT_NE(run.err.find(prefix + "corrupt.png: corrupt PNG"), std::string::npos) << run.err;
        EXPECT_NE(run.err.find(prefix + "notes.pgm: "), std::string::npos) << run.err;
        EXPECT_NE(run.err.find(prefix + "short.pgm: truncated PGM"), std::string::npos) << run.err;
        EXPECT_NE(run.err.find("7 images, 3 done, 4 failed"), std::string::npos) << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 5);
    }
    EXPECT_EQ(Json("serial.json"), Json("parallel.json"));
    const json images = Json("serial.json")["images"];
    ASSERT_EQ(images.size(), 7u);
    int good = 0;
    for (const json& image : images) good += image.contains("blobs");
    EXPECT_EQ(good, 3);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(fs::exists(P("ov/good" + std::to_string(i) + "-overlay.png")));
}

TEST_F(Program, UserMistakesGiveOneClearLineAndAFailingStatus) {
    ASSERT_TRUE(cv::imwrite(P("img.png"), cv::Mat(60, 80, CV_8UC1, cv::Scalar(50))));
    const struct {
        std::string args;
        int status;
        std::string message;
    } cases[] = {
        {"hist " + P("missing.png"), 1, "ombrel hist: " + P("missing.png") + ": No such file or directory\n"},
        {"blob " + P("img.png") + " --band 0:10 --roi 50,40,40,30", 1,
         "region 50,40,40,30 lies outside the 80 x 60 image"},
        {"hist " + P("img.png") + " --mask " + P("img.png") + " --roi 0,0,10,10", 1,
         "is 80 x 60 pixels but the region is 10 x 10"},
        {"blob " + P("img.png") + " --band 300:10", 2, "--band"},
        {"blob " + P("img.png") + " --band 10:5", 2, "need 0 <= LOW <= HIGH <= 255"},
        {"blob " + P("img.png") + " --band 0:10 --features area,nonsense", 2, "unknown feature 'nonsense'"},
        {"blob " + P("img.png") + " --band 0:10 --overlay " + P("x.jpg"), 2, "cannot write '.jpg' files"},
        {"hist " + P("img.png") + " --jobs 0", 2, "--jobs"},
        {"hist " + P("img.png") + " --roi 1,2,3", 2, "is not a region"},
        {"arith add " + P("img.png") + " --out " + P("o.png"), 2, "add needs two images"},
        {"arith frobnicate " + P("img.png") + " --out " + P("o.png"), 2, "frobnicate"},
    };
    for (const auto& c : cases) {
        const RunResult run = Ombrel(c.args);
        EXPECT_EQ(run.status, c.status) << c.args << "\n" << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << c.args << "\n" << run.err;
    }
}

// A PNG whose header promises 30000 x 30000 pixels, run with less address space than that needs.
TEST_F(Program, AnImageLargerThanMemoryIsRefused) {
#if defined(OMBREL_SANITIZED_BUILD)
    GTEST_SKIP() << "AddressSanitizer reserves more address space than the limit allows";
#else
    auto crc = [](const std::string& bytes) {
        uint32_t c = 0xFFFFFFFFu;
        for (unsigned char b : bytes) {
            c ^= b;
            for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
        }
        return c ^ 0xFFFFFFFFu;
    };
    auto be32 = [](uint32_t v) { return std::string{char(v >> 24), char(v >> 16), char(v >> 8), char(v)}; };
    const std::string ihdr = "IHDR" + be32(30000) + be32(30000) + std::string("\x08\x00\x00\x00\x00", 5);
    Write("huge.png", std::string("\x89PNG\r\n\x1A\n", 8) + be32(13) + ihdr + be32(crc(ihdr)) + be32(0) +
                          "IDAT" + be32(crc("IDAT")) + be32(0) + "IEND" + be32(crc("IEND")));
    const RunResult run = Ombrel("hist " + P("huge.png"), "ulimit -v 600000;");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find(P("huge.png") + ": "), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("30000 x 30000 pixels"), std::string::npos) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
#endif
}

TEST_F(Program, EverySubcommandExplainsItselfWithAnExample) {
    for (const char* command : {"demo", "blob", "hist", "arith", "mask"}) {
        const RunResult run = Ombrel(std::string(command) + " --help");
        EXPECT_EQ(run.status, 0) << command;
        EXPECT_NE(run.out.find("Example:\n  ombrel " + std::string(command)), std::string::npos) << run.out;
    }
    EXPECT_NE(Ombrel("--help").out.find("demo"), std::string::npos);
    EXPECT_EQ(Ombrel("").status, 2);
}

}  // namespace
}  // namespace ombrel
