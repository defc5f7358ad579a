// SPDX-License-Identifier: MIT
#include "testing/recorders.h"

namespace ombrel::testing {

AssertRecorder::AssertRecorder() {
    _previous = SetAssertSink([this](const char* module, int line, const char* expression) {
        std::lock_guard lock(_mutex);
        _reports.push_back({module ? module : "", line, expression ? expression : ""});
    });
}

AssertRecorder::~AssertRecorder() {
    SetAssertSink(std::move(_previous));
}

std::vector<AssertReport> AssertRecorder::Reports() const {
    std::lock_guard lock(_mutex);
    return _reports;
}

size_t AssertRecorder::Count() const {
    std::lock_guard lock(_mutex);
    return _reports.size();
}

bool AssertRecorder::Has(const std::string& module, int line, const std::string& expression) const {
    std::lock_guard lock(_mutex);
    for (const AssertReport& report : _reports) {
        if (report.module == module && report.line == line &&
            (expression.empty() || report.expression == expression))
            return true;
    }
    return false;
}

void AssertRecorder::Clear() {
    std::lock_guard lock(_mutex);
    _reports.clear();
}

TextRecorder::TextRecorder() {
    _previousText = SetTextSink([this](TextChannel, std::string_view text) {
        std::lock_guard lock(_mutex);
        _text.append(text);
    });
    _previousDebug = SetDebugWindowSink([this](uint32_t messageClass, std::string_view text) {
        std::lock_guard lock(_mutex);
        _debugWindow.emplace_back(messageClass, std::string(text));
    });
}

TextRecorder::~TextRecorder() {
    SetTextSink(std::move(_previousText));
    SetDebugWindowSink(std::move(_previousDebug));
}

std::string TextRecorder::Text() const {
    std::lock_guard lock(_mutex);
    return _text;
}

std::vector<std::pair<uint32_t, std::string>> TextRecorder::DebugWindow() const {
    std::lock_guard lock(_mutex);
    return _debugWindow;
}

void TextRecorder::Clear() {
    std::lock_guard lock(_mutex);
    _text.clear();
    _debugWindow.clear();
}

}  // namespace ombrel::testing
