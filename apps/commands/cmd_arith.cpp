// SPDX-License-Identifier: MIT
// ombrel arith: pixel arithmetic on one or two images through the library's arithmetic agent.
#include <cstdio>
#include <map>

#include <ombrel/pixelops/arith.h>

#include "command.h"

namespace ombrel::cli {
namespace {

const std::map<std::string, ArithOp>& ArithOps() {
    static const std::map<std::string, ArithOp> ops = {{"not", _ARITH_NOT},
                                                       {"negate", _ARITH_NEGATE},
                                                       {"copy", _ARITH_COPY},
                                                       {"binarize", _ARITH_BINARIZE},
                                                       {"maskshift", _ARITH_MASKSHIFT},
                                                       {"abs", _ARITH_ABS},
                                                       {"passrange", _ARITH_PASSRANGE},
                                                       {"add", _ARITH_ADD},
                                                       {"sub", _ARITH_SUB},
                                                       {"diff", _ARITH_DIFF},
                                                       {"and", _ARITH_AND},
                                                       {"or", _ARITH_OR},
                                                       {"xor", _ARITH_XOR},
                                                       {"min", _ARITH_MIN},
                                                       {"max", _ARITH_MAX},
                                                       {"mult", _ARITH_MULT}};
    return ops;
}

struct ArithOptions {
    std::string op;
    std::string a;
    std::string b;
    double gain = 1.0;
    int offset = 0;
    std::string roi;
    std::string band = "0:255";
    int bits = 255;
    int shift = 0;
    std::string overflow;  // saturate (default), white or wrap
    bool signedA = false;
    bool signedB = false;
    bool signedOut = false;
    std::string out;
    std::string json;
    bool quiet = false;
};

// Operations whose sign and clipping the agent lets a caller set.
bool SignAndClipAdjustable(ArithOp op) {
    return op == _ARITH_COPY || op == _ARITH_ABS || op == _ARITH_ADD || op == _ARITH_SUB ||
           op == _ARITH_DIFF || op == _ARITH_MULT;
}

// Applies --overflow and the sign flags. The agent decides what it keeps (see --help): a signed output
// never keeps the clip flag, add and diff on an unsigned output never keep clamping, sub on an unsigned
// output never keeps the clip flag -- so "white" for sub keeps the agent's initial settings (clip on).
void SetOverflow(ArithAgent& agent, const ArithOptions& options) {
    const std::string mode = options.overflow.empty() ? "saturate" : options.overflow;
    const bool anySigned = options.signedA || options.signedB || options.signedOut;
    if (mode == "white" && !anySigned && agent.Clip()) return;
    // add and diff cannot keep clamping on an unsigned output: the clip flag is their nearest saturation.
    const bool addOrDiff = agent.Op() == _ARITH_ADD || agent.Op() == _ARITH_DIFF;
    const bool clip = mode == "white" || (mode == "saturate" && addOrDiff && !options.signedOut);
    agent.SetSignClip(options.signedA ? _ARITH_SIGNED : _ARITH_UNSIGNED,
                      options.signedB ? _ARITH_SIGNED : _ARITH_UNSIGNED,
                      options.signedOut ? _ARITH_SIGNED : _ARITH_UNSIGNED, clip, mode == "saturate");
}

// The rule the agent ended with, in words.
std::string OverflowRule(const ArithAgent& agent) {
    if (agent.SignDest() != _ARITH_UNSIGNED)
        return agent.SecondFlag() ? "signed output clamped to -128..127" : "signed output, low 8 bits kept";
    if (agent.SecondFlag()) return "results clamped to 0..255 (as cv2.add / cv2.subtract)";
    if (agent.Clip()) return "results above 255 become 255 and results below 0 become 255 (white)";
    return "low 8 bits kept (results wrap around modulo 256)";
}

std::string ImageSize(const Buffer& image) {
    return std::to_string(image.Width()) + " x " + std::to_string(image.Height());
}

// Runs the agent and writes the output; returns the JSON record. Throws InputError naming what failed.
Json Compute(const ArithOptions& options, DecodedImage& a, DecodedImage* b, std::string* table) {
    const ArithOp op = ArithOps().at(options.op);
    std::string problem;
    std::optional<Region> region;
    if (!options.roi.empty()) region = ParseRegion(options.roi, &problem);
    const Placement placement = PlaceRegion(*a.image, region, nullptr, "");
    if (b != nullptr &&
        (b->image->Width() < placement.region.width || b->image->Height() < placement.region.height)) {
        throw InputError("B (" + options.b + ") is " + ImageSize(*b->image) + " pixels, smaller than the " +
                         std::to_string(placement.region.width) + " x " +
                         std::to_string(placement.region.height) + " region it must cover");
    }
    auto destination = detail::AllocateGrey(placement.region.width, placement.region.height, &problem);
    if (!destination) throw InputError(problem);
    std::unique_ptr<ArithAgent> agent(
        ArithFact(a.image.get(), placement.origin, placement.roi, b != nullptr ? b->image.get() : nullptr, op,
                  static_cast<float>(options.gain), options.offset, destination.get()));
    if (!agent) throw InputError("the arithmetic agent could not be made (out of memory?)");
    const Band band = ParseBand(options.band, &problem).value_or(Band{});
    agent->SetBand(band.low, band.high);
    if (op == _ARITH_MASKSHIFT) agent->SetMaskShift(_ARITH_MASK_AND, options.bits, options.shift);
    if (SignAndClipAdjustable(op)) SetOverflow(*agent, options);
    const int status = agent->Go();
    if (status != 0) throw InputError("the arithmetic agent failed with status " + std::to_string(status));
    ArithResults results;
    agent->GetResults(&results);
    SaveImage(options.out, *destination);
    Json record{{"operation", options.op},
                {"a", ImageRecord(options.a, a)},
                {"region", RegionRecord(placement)},
                {"gain", agent->Gain()},
                {"gain_multiplier", agent->Multiplier()},
                {"gain_shift", agent->Shift()},
                {"offset", agent->Offset()},
                {"pre_offset", agent->PreOffset()},
                {"post_offset", agent->PostOffset()},
                {"clip", agent->Clip()},
                {"clamp", agent->SecondFlag()},
                {"signed_a", agent->SignA() != _ARITH_UNSIGNED},
                {"signed_b", agent->SignB() != _ARITH_UNSIGNED},
                {"signed_out", agent->SignDest() != _ARITH_UNSIGNED},
                {"overflow_rule", OverflowRule(*agent)},
                {"output", options.out},
                {"output_sum", static_cast<uint32_t>(results.word[0])},
                {"output_non_zero", results.word[1]}};
    if (b != nullptr) record["b"] = ImageRecord(options.b, *b);
    char line[256];
    std::snprintf(line, sizeof line,
                  "%s %s%s%s -> %s (%s): gain %g = %d / 2^%d, offset %d; output sum %u, %d non-zero\n",
                  options.op.c_str(), options.a.c_str(), b != nullptr ? " " : "", options.b.c_str(),
                  options.out.c_str(), ImageSize(*destination).c_str(), agent->Gain(), agent->Multiplier(),
                  agent->Shift(), agent->Offset(), static_cast<uint32_t>(results.word[0]), results.word[1]);
    *table = line;
    *table += "  overflow: " + OverflowRule(*agent) + "\n";
    return record;
}

int RunArith(const ArithOptions& options) {
    if (RefuseUnwritable("arith", options.json)) return 2;
    const bool needsB = ArithOps().at(options.op) >= kFirstBinaryArithOp;
    if (needsB != !options.b.empty()) {
        std::fprintf(stderr, "ombrel arith: %s %s\n", options.op.c_str(),
                     needsB ? "needs two images, A and B" : "takes one image, A");
        return 2;
    }
    const bool setsSignOrClip =
        !options.overflow.empty() || options.signedA || options.signedB || options.signedOut;
    if (setsSignOrClip && !SignAndClipAdjustable(ArithOps().at(options.op))) {
        std::fprintf(stderr,
                     "ombrel arith: %s has fixed sign and clipping: --overflow and --signed-* apply to copy, "
                     "abs, add, sub, diff and mult\n",
                     options.op.c_str());
        return 2;
    }
    if (const std::string problem = OutputFormatProblem(options.out); !problem.empty()) {
        PrintError("arith", "--out " + options.out, problem);
        return 2;
    }
    std::string current = options.a;
    try {
        DecodedImage a = LoadImage(options.a);
        DecodedImage b;
        if (needsB) {
            current = options.b;
            b = LoadImage(options.b);
        }
        current = options.a;
        std::string table;
        const Json record = Compute(options, a, needsB ? &b : nullptr, &table);
        if (!options.quiet) std::fputs(table.c_str(), stdout);
        if (!options.json.empty()) {
            current = options.json;
            SaveJson(options.json, Json{{"tool", "ombrel arith"}, {"result", record}});
        }
    } catch (const std::exception& e) {
        PrintError("arith", current, e.what());
        return 1;
    }
    return 0;
}

}  // namespace

CommandRun AddArithCommand(CLI::App& program) {
    auto options = std::make_shared<ArithOptions>();
    CLI::App* command = program.add_subcommand(
        "arith",
        "Compute a new image pixel by pixel from image A (not, negate, copy, binarize, maskshift, abs, "
        "passrange) or from images A and B (add, sub, diff, and, or, xor, min, max, mult), then "
        "apply gain x value + offset, with the library's arithmetic agent and its clipping rules. "
        "The output has the size of the region; B is read from its top-left corner.");
    command->add_option("op", options->op, "Operation")->required()->check(CLI::IsMember(ArithOps()));
    command->add_option("a", options->a, "Image A")->required();
    command->add_option("b", options->b, "Image B, for the two-image operations");
    command->add_option("-g,--gain", options->gain, "Gain, -256 to 255 (held as a multiplier and a shift)")
        ->check(CLI::Range(-256.0, 255.0))
        ->capture_default_str();
    command->add_option("--offset", options->offset, "Offset added to every result, -65536 to 65791")
        ->check(CLI::Range(-65536, 65791))
        ->capture_default_str();
    command->add_option("--roi", options->roi, "Region x,y,w,h of A (default: all of A)")
        ->check(RegionValidator());
    command->add_option("--band", options->band, "LOW:HIGH for binarize and passrange")
        ->check(BandValidator())
        ->capture_default_str();
    command->add_option("--bits", options->bits, "Mask ANDed with each pixel by maskshift")
        ->check(CLI::Range(0, 255))
        ->capture_default_str();
    command->add_option("--shift", options->shift, "Left shift (right when negative) of maskshift, -7 to 7")
        ->check(CLI::Range(-7, 7))
        ->capture_default_str();
    command
        ->add_option("--overflow", options->overflow,
                     "What happens to results outside 0..255 (copy, abs, add, sub, diff, mult): saturate "
                     "(default: clamp to 0..255, as cv2.add / cv2.subtract), white (results above 255 and "
                     "below 0 become 255: the agent's clip flag), wrap (keep the low 8 bits)")
        ->check(CLI::IsMember({"saturate", "white", "wrap"}));
    command->add_flag("--signed-a", options->signedA, "Read A as signed bytes (-128..127)");
    command->add_flag("--signed-b", options->signedB, "Read B as signed bytes (-128..127)");
    command->add_flag("--signed-out", options->signedOut,
                      "Write signed bytes: saturate clamps to -128..127, white is not possible (the agent "
                      "turns its clip flag off and says so)");
    command->add_option("-o,--out", options->out, "Output image (.png, .pgm or .pbm)")->required();
    command->add_option("--json", options->json, "Write the parameters and the result words to this file");
    command->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    command->footer(
        "Overflow rule: the result gain x value + offset is written as it is when it lies in 0..255; "
        "otherwise --overflow decides.\nThe agent keeps only some settings: add and diff cannot clamp "
        "below 0 on an unsigned output, so saturate runs them with the clip flag (above 255 -> 255, and a "
        "negative result, possible only with a negative gain or offset, -> 255), and sub keeps white only "
        "as its initial setting. The JSON's \"overflow_rule\" and the "
        "printed line say which rule ran.\n\n"
        "Example:\n  ombrel arith diff part.png golden.png --gain 4 --out difference.png\n"
        "  ombrel arith sub part.png background.png --out darker-removed.png   (negatives become 0)");
    return [options] { return RunArith(*options); };
}

}  // namespace ombrel::cli
