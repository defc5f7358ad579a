// SPDX-License-Identifier: MIT
// ombrel project: column or row projection profiles of images, through the library's projection agent.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

#include <ombrel/pixelops/project.h>

#include "../output_file.h"
#include "command.h"

namespace ombrel::cli {
namespace {

struct ProjectOptions {
    std::vector<std::string> inputs;
    std::string type = "columns";
    std::string roi;
    std::string zones;
    std::string plot;
    std::string values;
    std::string json;
    int jobs = 1;
    bool quiet = false;
    BatchOutputs streams;
};

struct Zones {
    int size = 0, space = 0;
};

// "SIZE,SPACING": size at least 5, spacing at least 1 (a spacing of 0 would never advance).
std::optional<Zones> ParseZones(const std::string& text, std::string* error) {
    int size = 0, space = 0;
    char tail = 0;
    if (std::sscanf(text.c_str(), "%d,%d%c", &size, &space, &tail) != 2) {
        *error = "expected SIZE,SPACING, e.g. 10,10";
        return std::nullopt;
    }
    if (size < 5 || size > 1 << 20) {
        *error = "zone size must be 5..1048576";
        return std::nullopt;
    }
    if (space < 1 || space > 1 << 20) {
        *error = "zone spacing must be 1..1048576";
        return std::nullopt;
    }
    return Zones{size, space};
}

// The number of zones the agent makes along a line of `length` pixels (the last one moved back).
int ZoneCount(int length, const Zones& zones) {
    int count = 0;
    for (int64_t start = 0; start < length; start += zones.space) {
        ++count;
        if (start + zones.size > length) break;
    }
    return count;
}

struct Profiles {
    std::vector<std::vector<int>> lines;  // one profile per zone (one without zones)
    int pixelsPerSum = 0;
    int shift = 0;
};

Profiles RunAgent(Buffer& image, const Region& region, ProjectType type, const std::optional<Zones>& zones) {
    const int along = type == HORIZONTAL ? region.width : region.height;   // one value per ...
    const int across = type == HORIZONTAL ? region.height : region.width;  // ... summed over this
    const int count = zones ? ZoneCount(across, *zones) : 1;
    std::string error;
    // HORIZONTAL writes zone k to row k; VERTICAL writes row y's zone k to (k, y).
    auto dst = type == HORIZONTAL || !zones ? detail::AllocateGrey(along, count, &error)
                                            : detail::AllocateGrey(count, along, &error);
    if (!dst) throw InputError(error);
    std::unique_ptr<ProjectAgent> agent(
        ProjectFact(&image, dst.get(),
                    Rect{region.x, region.y, region.x + region.width, region.y + region.height}, type));
    if (!agent) throw InputError("the projection agent could not be made (out of memory?)");
    if (zones) agent->SetZoneSizeSpace(zones->size, zones->space);
    const int status = agent->Go();
    if (status != 0) throw InputError("the projection agent failed with status " + std::to_string(status));
    Profiles out;
    out.pixelsPerSum = zones ? zones->size : across;
    out.shift = agent->Shift();
    out.lines.assign(static_cast<size_t>(count), std::vector<int>(static_cast<size_t>(along)));
    for (int k = 0; k < count; ++k)
        for (int i = 0; i < along; ++i)
            out.lines[k][i] = type == HORIZONTAL || !zones ? dst->Row(k)[i] : dst->Row(i)[k];
    return out;
}

// A grey bar chart, one panel of 256 rows per profile (at most 16 panels), value v a bar v pixels high.
void WritePlotPng(const std::string& path, const Profiles& profiles) {
    const int panels = static_cast<int>(std::min<size_t>(profiles.lines.size(), 16));
    const int width = static_cast<int>(profiles.lines[0].size());
    std::string error;
    auto plot = detail::AllocateGrey(width, panels * 257, &error);
    if (!plot) throw InputError(error);
    for (int p = 0; p < panels; ++p) {
        for (int x = 0; x < width; ++x) {
            const int v = profiles.lines[p][x];
            for (int r = 0; r < 256; ++r) plot->Row(p * 257 + r)[x] = 255 - r < v ? 255 : 0;
        }
        if (p + 1 < panels) std::fill(plot->Row(p * 257 + 256), plot->Row(p * 257 + 256) + width, 128);
    }
    SaveImage(path, *plot);
}

void WritePlotSvg(const std::string& path, const Profiles& profiles) {
    std::ostringstream out;
    const size_t width = profiles.lines[0].size();
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << std::max<size_t>(width, 1)
        << " 256\" preserveAspectRatio=\"none\" width=\"800\" height=\"300\">\n"
        << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    for (size_t k = 0; k < profiles.lines.size(); ++k) {
        out << "<polyline fill=\"none\" stroke=\"hsl(" << (k * 47) % 360
            << ",70%,40%)\" stroke-width=\"1\" vector-effect=\"non-scaling-stroke\" points=\"";
        for (size_t i = 0; i < width; ++i) out << i << ',' << 255 - profiles.lines[k][i] << ' ';
        out << "\"/>\n";
    }
    out << "</svg>\n";
    const std::string problem = WriteTextFile(path, out.str());
    if (!problem.empty()) throw InputError(path + ": " + problem);
}

void WriteValues(const std::string& path, const Json& record, const Profiles& profiles) {
    if (path.size() >= 4 && path.substr(path.size() - 4) == ".csv") {
        std::ostringstream out;
        out << "index";
        for (size_t k = 0; k < profiles.lines.size(); ++k) out << ",zone" << k;
        out << "\n";
        for (size_t i = 0; i < profiles.lines[0].size(); ++i) {
            out << i;
            for (const auto& line : profiles.lines) out << ',' << line[i];
            out << "\n";
        }
        const std::string problem = WriteTextFile(path, out.str());
        if (!problem.empty()) throw InputError(path + ": " + problem);
        return;
    }
    const std::string problem = WriteJsonFile(path, record);
    if (!problem.empty()) throw InputError(problem);
}

FileOutcome ProjectOne(const ProjectOptions& options, const std::optional<Region>& roi,
                       const std::optional<Zones>& zones, const std::string& input) {
    DecodedImage decoded = LoadImage(input);
    const Placement placement = PlaceRegion(*decoded.image, roi, nullptr, "");
    const ProjectType type = options.type == "rows" ? VERTICAL : HORIZONTAL;
    const Profiles profiles = RunAgent(*decoded.image, placement.region, type, zones);
    FileOutcome outcome;
    outcome.record = ImageRecord(input, decoded);
    outcome.record["region"] = RegionRecord(placement);
    outcome.record["type"] = options.type;
    outcome.record["zones"] = zones ? Json{{"size", zones->size}, {"spacing", zones->space}} : Json(nullptr);
    outcome.record["pixels_per_sum"] = profiles.pixelsPerSum;
    outcome.record["shift"] = profiles.shift;
    outcome.record["normalisation"] = "value = sum >> shift, shift = bit length of pixels_per_sum";
    outcome.record["profiles"] = profiles.lines;
    if (!options.plot.empty()) {
        const bool svg = options.plot.size() >= 4 && options.plot.substr(options.plot.size() - 4) == ".svg";
        svg ? WritePlotSvg(options.plot, profiles) : WritePlotPng(options.plot, profiles);
    }
    if (!options.values.empty()) WriteValues(options.values, outcome.record, profiles);
    const auto& first = profiles.lines[0];
    const int peak = static_cast<int>(std::max_element(first.begin(), first.end()) - first.begin());
    outcome.table = input + ": " + options.type + " profile of region " + FormatRegion(placement.region) +
                    ", " + std::to_string(profiles.lines.size()) + " profile(s) of " +
                    std::to_string(first.size()) + " values (sum >> " + std::to_string(profiles.shift) +
                    "), first peaks at " + std::to_string(peak) + " with " + std::to_string(first[peak]) +
                    "\n";
    return outcome;
}

int RunProject(const ProjectOptions& options) {
    std::string problem;
    std::optional<Region> roi;
    if (!options.roi.empty()) roi = ParseRegion(options.roi, &problem);
    std::optional<Zones> zones;
    if (!options.zones.empty() && !(zones = ParseZones(options.zones, &problem))) {
        PrintError("project", "--zones " + options.zones, problem);
        return 2;
    }
    const std::vector<std::string> inputs = ExpandInputs(options.inputs);
    if (inputs.size() != 1 && (!options.plot.empty() || !options.values.empty())) {
        PrintError("project", "--plot/--values", "take one image; use --json for several");
        return 2;
    }
    if (!options.plot.empty() && !(problem = OutputFormatProblem(options.plot)).empty() &&
        !(options.plot.size() >= 4 && options.plot.substr(options.plot.size() - 4) == ".svg")) {
        PrintError("project", "--plot " + options.plot, "use a .png or .svg file");
        return 2;
    }
    return RunStreamedBatch(
        "project", inputs, WithCommon(options.streams, options.json, options.jobs, options.quiet),
        [&](const std::string& input, size_t) { return ProjectOne(options, roi, zones, input); });
}

}  // namespace

CommandRun AddProjectCommand(CLI::App& program) {
    auto options = std::make_shared<ProjectOptions>();
    CLI::App* command = program.add_subcommand(
        "project",
        "Projection profiles with the library's projection agent: the sum of every column (or row) of a "
        "region, normalised to a byte as sum >> shift, where shift is the bit length of the number of "
        "pixels summed (so a profile value is the mean divided by up to 2). With --zones, the sums are "
        "taken over zones of SIZE pixels every SPACING pixels along each column (row), the last zone "
        "moved back to end at the region's edge: one profile per zone.");
    command->add_option("images", options->inputs, "Images (PNG, PGM, PBM, PPM) or folders of images")
        ->required();
    command->add_option("-t,--type", options->type, "columns: one value per column; rows: one per row")
        ->check(CLI::IsMember({"columns", "rows"}))
        ->capture_default_str();
    command->add_option("--roi", options->roi, "Region x,y,w,h (default: the whole image)")
        ->check(RegionValidator());
    command->add_option("--zones", options->zones, "SIZE,SPACING: zone size (>= 5) and spacing (>= 1)");
    command->add_option("--plot", options->plot, "Plot of the profiles: .svg (lines) or .png (bars)");
    command->add_option("--values", options->values,
                        "The profile values: .json or .csv (one column per zone)");
    command->add_option("--json", options->json, "Write the profiles of every image to this file");
    AddJobsOption(command, &options->jobs);
    AddStreamOptions(command, &options->streams);
    command->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    command->footer(
        "Example:\n  ombrel project part.png --type rows --roi 0,100,640,80 --plot rows.svg --values "
        "rows.csv\n"
        "  ombrel project part.png --zones 20,20 --json zones.json");
    return [options] { return RunProject(*options); };
}

}  // namespace ombrel::cli
