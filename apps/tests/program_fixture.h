// SPDX-License-Identifier: MIT
// What every test of the ombrel program shares: a scratch folder per test, the program run as a user runs
// it (what it prints captured), and files read back. OMBREL_PROGRAM is the program's path (set by CMake).
#pragma once
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

namespace ombrel::testing {

inline std::string Slurp(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

class ProgramTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
        _dir = std::filesystem::temp_directory_path() / ("ombrel_cli_" + std::to_string(::getpid()) + "_" +
                                                         test->test_suite_name() + "_" + test->name());
        std::filesystem::create_directories(_dir);
    }
    void TearDown() override { std::filesystem::remove_all(_dir); }

    // A path in this test's scratch folder.
    std::string P(const std::string& name) const { return (_dir / name).string(); }

    // Runs `ombrel <args>` through the shell and returns its exit status (-1 when it did not exit);
    // _out and _err (and *err when given) hold what it printed.
    int Ombrel(const std::string& args, std::string* err = nullptr) {
        const std::string command =
            std::string(OMBREL_PROGRAM) + " " + args + " >" + P("stdout") + " 2>" + P("stderr");
        const int raw = std::system(command.c_str());
        _out = Slurp(P("stdout"));
        _err = Slurp(P("stderr"));
        if (err != nullptr) *err = _err;
        return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    }

    nlohmann::json Json(const std::string& name) const { return nlohmann::json::parse(Slurp(P(name))); }

    std::filesystem::path _dir;
    std::string _out, _err;
};

}  // namespace ombrel::testing
