// SPDX-License-Identifier: MIT
// Test helpers that capture what the library reports instead of letting it reach the terminal.
#pragma once
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ombrel/framework/hal.h"
#include "ombrel/framework/isa.h"

namespace ombrel::testing {

struct AssertReport {
    std::string module;
    int line = 0;
    std::string expression;
};

// Records every assertion while alive; restores the previous sink on destruction.
class AssertRecorder {
  public:
    AssertRecorder();
    ~AssertRecorder();
    std::vector<AssertReport> Reports() const;
    size_t Count() const;
    // True when some report has this module and line (and this text, when one is given).
    bool Has(const std::string& module, int line, const std::string& expression = {}) const;
    void Clear();

  private:
    mutable std::mutex _mutex;
    std::vector<AssertReport> _reports;
    AssertSink _previous;
};

// Records diagnostic text (aprintf and friends) and debug-window messages while alive.
class TextRecorder {
  public:
    TextRecorder();
    ~TextRecorder();
    std::string Text() const;  // everything written, all channels, in order
    std::vector<std::pair<uint32_t, std::string>> DebugWindow() const;
    void Clear();

  private:
    mutable std::mutex _mutex;
    std::string _text;
    std::vector<std::pair<uint32_t, std::string>> _debugWindow;
    TextSink _previousText;
    DebugWindowSink _previousDebug;
};

// Caps the instruction-set level for the life of the object.
class ScopedIsaCap {
  public:
    explicit ScopedIsaCap(Isa cap) : _previous(SetIsaCap(cap)) {}
    ~ScopedIsaCap() { SetIsaCap(_previous); }

  private:
    Isa _previous;
};

// The levels to parameterise kernel tests over; a test skips the ones this CPU lacks with
// OMBREL_SKIP_IF_UNSUPPORTED(isa).
inline std::vector<Isa> AllIsaLevels() {
    return {Isa::Scalar, Isa::Sse2, Isa::Avx2, Isa::Avx512, Isa::Avx512Vnni};
}
inline std::string IsaTestName(const ::testing::TestParamInfo<Isa>& info) {
    return IsaName(info.param);
}

}  // namespace ombrel::testing

#define OMBREL_SKIP_IF_UNSUPPORTED(isa)                                        \
    do {                                                                       \
        if (static_cast<int>(isa) > static_cast<int>(::ombrel::DetectedIsa())) \
            GTEST_SKIP() << "this CPU lacks " << ::ombrel::IsaName(isa);       \
    } while (0)

namespace ombrel::testing {

// The one fixture of every test that proves a kernel level byte-identical to the scalar reference: the
// level is the parameter (and part of the test name), levels this CPU lacks skip, and the process is
// capped at the level for the test's life. Instantiate with OMBREL_INSTANTIATE_ISA_LEVELS(Suite).
class IsaLevelTest : public ::testing::TestWithParam<Isa> {
  protected:
    void SetUp() override {
        OMBREL_SKIP_IF_UNSUPPORTED(GetParam());
        _cap.emplace(GetParam());
    }
    void TearDown() override { _cap.reset(); }
    Isa Level() const { return GetParam(); }

  private:
    std::optional<ScopedIsaCap> _cap;
};

}  // namespace ombrel::testing

#define OMBREL_INSTANTIATE_ISA_LEVELS(Suite)                                                        \
    INSTANTIATE_TEST_SUITE_P(Levels, Suite, ::testing::ValuesIn(::ombrel::testing::AllIsaLevels()), \
                             ::ombrel::testing::IsaTestName)
