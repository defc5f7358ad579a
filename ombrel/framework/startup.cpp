// SPDX-License-Identifier: MIT
#include "ombrel/framework/startup.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <mutex>

#include "ombrel/framework/event_logger.h"

namespace ombrel {
namespace {

constexpr const char* kSettingsKey = "HKEY_LOCAL_MACHINE\\Software\\Quorvane";
constexpr const char* kFineGridValue = "UseFineGridCorrelation";
constexpr size_t kQueryBufferBytes = 32;  // the size of the buffer a value is queried into

int gUseFineGrid = 0;

std::string Trim(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    const size_t last = text.find_last_not_of(" \t\r");
    return text.substr(first, last - first + 1);
}

struct GreyTables {
    std::array<uint32_t, 256> red{}, green{}, blue{};
};
GreyTables gGreyTables;
std::once_flag gLutsOnce;

}  // namespace

std::string MachineConfigPath() {
    const char* override = std::getenv("OMBREL_MACHINE_CONFIG");
    return (override != nullptr && *override != '\0') ? override : "/etc/ombrel/machine.conf";
}

bool QueryMachineValue(const std::string& key, const std::string& name, std::string* data) {
    std::ifstream file(MachineConfigPath());
    if (!file) return false;
    std::string line;
    bool inSection = false;
    while (std::getline(file, line)) {
        const std::string text = Trim(line);
        if (text.empty() || text[0] == ';' || text[0] == '#') continue;
        if (text.front() == '[') {
            inSection = text.back() == ']' && text.substr(1, text.size() - 2) == key;
            continue;
        }
        if (!inSection) continue;
        const size_t equals = text.find('=');
        const std::string valueName = Trim(text.substr(0, equals));
        if (valueName != name) continue;
        const std::string value = equals == std::string::npos ? std::string() : Trim(text.substr(equals + 1));
        if (value.size() > kQueryBufferBytes) return false;  // would not fit the query buffer: a failed query
        if (data != nullptr) *data = value;
        return true;
    }
    return false;
}

int OmbrelApp::InitInstance() {
    // Presence alone switches fine-grid correlation on, also with data 0 or empty.
    if (QueryMachineValue(kSettingsKey, kFineGridValue)) gUseFineGrid = 1;
    InitializeLuts();
    return 1;
}

OmbrelApp& TheOmbrelApp() {
    static OmbrelApp app;
    return app;
}

int UseFineGridCorrelation() {
    return gUseFineGrid;
}

void ColorUtilities::CreateLuts() {
    std::call_once(gLutsOnce, [] {
        for (int v = 0; v < 256; ++v) {
            gGreyTables.red[v] = static_cast<uint32_t>(std::lround(0.299 * 65536.0 * v));
            gGreyTables.green[v] = static_cast<uint32_t>(std::lround(0.587 * 65536.0 * v));
            // Half of one grey level is folded into blue, so the sum rounds to nearest on the shift.
            gGreyTables.blue[v] = static_cast<uint32_t>(std::lround(0.114 * 65536.0 * v)) + 32768u;
        }
    });
}

const uint32_t* ColorUtilities::RedToGrey() {
    return gGreyTables.red.data();
}
const uint32_t* ColorUtilities::GreenToGrey() {
    return gGreyTables.green.data();
}
const uint32_t* ColorUtilities::BlueToGrey() {
    return gGreyTables.blue.data();
}

void InitializeLuts() {
    ColorUtilities utilities;
    utilities.CreateLuts();
}

namespace {
// Runs InitInstance once when the shared library is loaded.
struct LoadTimeInit {
    LoadTimeInit() {
        TheOmbrelApp().InitInstance();
        GetEventLogger();
    }
};
const LoadTimeInit gLoadTimeInit;
}  // namespace

}  // namespace ombrel
