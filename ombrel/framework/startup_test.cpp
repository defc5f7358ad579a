// SPDX-License-Identifier: MIT
#include "ombrel/framework/startup.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "ombrel/framework/angles.h"

namespace ombrel {
namespace {

TEST(AngleConstants, UseTheLibrarysOwnPiBitForBit) {
    EXPECT_EQ(std::bit_cast<uint64_t>(kPi), 0x400921FB54441C5Bull);
    EXPECT_EQ(kTwoPi, 6.28318530717578);
    EXPECT_NE(kTwoPi, 6.283185307179586);
    EXPECT_EQ(kPiOver4, 0.7853981633969725);
    EXPECT_EQ(kThreePiOver4, 2.3561944901909175);
    EXPECT_EQ(kMinusPiOver4, -0.7853981633969725);
    EXPECT_EQ(kMinusThreePiOver4, -2.3561944901909175);
}

class MachineConfig : public ::testing::Test {
  protected:
    void Write(const std::string& text) {
        // Test cases run as parallel processes: the process id keeps their files apart.
        path_ = ::testing::TempDir() + "ombrel_machine_" + std::to_string(getpid()) + "_" +
                std::to_string(counter_++) + ".conf";
        std::ofstream(path_) << text;
        written_.push_back(path_);
        setenv("OMBREL_MACHINE_CONFIG", path_.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("OMBREL_MACHINE_CONFIG");
        for (const std::string& path : written_) std::remove(path.c_str());
    }
    bool FineGrid() {
        return QueryMachineValue("HKEY_LOCAL_MACHINE\\Software\\Quorvane", "UseFineGridCorrelation");
    }
    std::string path_;
    std::vector<std::string> written_;
    int counter_ = 0;
};

TEST_F(MachineConfig, PresenceAloneSwitchesTheSettingOn) {
    Write("[HKEY_LOCAL_MACHINE\\Software\\Quorvane]\nUseFineGridCorrelation=0\n");
    EXPECT_TRUE(FineGrid());
    Write("[HKEY_LOCAL_MACHINE\\Software\\Quorvane]\nUseFineGridCorrelation=\n");
    EXPECT_TRUE(FineGrid());
    Write("; comment\n[HKEY_LOCAL_MACHINE\\Software\\Quorvane]\n  UseFineGridCorrelation = " +
          std::string(32, 'x') + "\n");
    EXPECT_TRUE(FineGrid()) << "32 bytes of data still fit the query";
}

TEST_F(MachineConfig, MissingFileSectionOrValueAndOverlongDataLeaveItOff) {
    setenv("OMBREL_MACHINE_CONFIG", "/nonexistent/ombrel.conf", 1);
    EXPECT_FALSE(FineGrid());
    Write("[HKEY_LOCAL_MACHINE\\Software\\Other]\nUseFineGridCorrelation=1\n");
    EXPECT_FALSE(FineGrid());
    Write("[HKEY_LOCAL_MACHINE\\Software\\Quorvane]\nUseFineGrid=1\n");
    EXPECT_FALSE(FineGrid());
    Write("[HKEY_LOCAL_MACHINE\\Software\\Quorvane]\nUseFineGridCorrelation=" + std::string(33, '1') + "\n");
    EXPECT_FALSE(FineGrid());
}

// InitInstance turns the flag on when the value is present and never turns it off again.
TEST_F(MachineConfig, InitInstanceSetsTheFineGridFlagFromTheConfiguration) {
    if (UseFineGridCorrelation() != 0)
        GTEST_SKIP() << "this machine's own configuration switched it on at load";
    Write("[HKEY_LOCAL_MACHINE\\Software\\Other]\nUseFineGridCorrelation=1\n");
    EXPECT_EQ(TheOmbrelApp().InitInstance(), 1);
    EXPECT_EQ(UseFineGridCorrelation(), 0) << "a value under another key does not count";
    Write("[HKEY_LOCAL_MACHINE\\Software\\Quorvane]\nUseFineGridCorrelation=0\n");
    EXPECT_EQ(TheOmbrelApp().InitInstance(), 1);
    EXPECT_EQ(UseFineGridCorrelation(), 1) << "present, even holding 0: on";
    setenv("OMBREL_MACHINE_CONFIG", "/nonexistent/ombrel.conf", 1);
    EXPECT_EQ(TheOmbrelApp().InitInstance(), 1);
    EXPECT_EQ(UseFineGridCorrelation(), 1);
}

// Loading the library runs InitInstance: this test runs itself again in a new process whose configuration
// is set before the library is loaded, and that process checks the flag before anything else touches it.
TEST_F(MachineConfig, LoadingTheLibraryReadsTheSetting) {
    if (const char* expected = std::getenv("OMBREL_STARTUP_EXPECT_FINE_GRID")) {
        EXPECT_EQ(UseFineGridCorrelation(), std::atoi(expected));
        return;
    }
    char self[4096] = {};
    ASSERT_GT(readlink("/proc/self/exe", self, sizeof(self) - 1), 0);
    const auto childSees = [&](const std::string& config, int expected) {
        Write(config);  // also names the file in OMBREL_MACHINE_CONFIG, which the child inherits
        const std::string command =
            "OMBREL_STARTUP_EXPECT_FINE_GRID=" + std::to_string(expected) + " '" + self +
            "' --gtest_filter=MachineConfig.LoadingTheLibraryReadsTheSetting >/dev/null 2>&1";
        return std::system(command.c_str());
    };
    EXPECT_EQ(childSees("[HKEY_LOCAL_MACHINE\\Software\\Quorvane]\nUseFineGridCorrelation=\n", 1), 0);
    EXPECT_EQ(childSees("[HKEY_LOCAL_MACHINE\\Software\\Quorvane]\nUseFineGrid=1\n", 0), 0);
    EXPECT_NE(childSees("[HKEY_LOCAL_MACHINE\\Software\\Quorvane]\nUseFineGrid=1\n", 1), 0)
        << "the child must fail when the flag is not what it was told to expect";
}

TEST(Startup, InitInstanceSucceedsAndBuildsTheGreyTables) {
    EXPECT_EQ(TheOmbrelApp().InitInstance(), 1);
    const auto grey = [](int r, int g, int b) {
        return (ColorUtilities::RedToGrey()[r] + ColorUtilities::GreenToGrey()[g] +
                ColorUtilities::BlueToGrey()[b]) >>
               16;
    };
    EXPECT_EQ(grey(255, 255, 255), 255u);
    EXPECT_EQ(grey(0, 0, 0), 0u);
    EXPECT_EQ(grey(255, 0, 0), 76u);   // 0.299 * 255 = 76.2
    EXPECT_EQ(grey(0, 255, 0), 150u);  // 0.587 * 255 = 149.7
}

}  // namespace
}  // namespace ombrel
