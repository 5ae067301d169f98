// Collects the lines that are logged while it lives, without their time stamps.
#pragma once

#include "core/CXLog.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

class LogCapture {
public:
    LogCapture() {
        Lines().clear();
        m_earlier = CXSetLogSink(Collect);
    }
    ~LogCapture() { CXSetLogSink(m_earlier); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> Get() const {
        const std::lock_guard<std::mutex> guard(Lock());
        return Lines();
    }
    /// Whether a line holds the text.
    bool Has(const std::string& text) const {
        const std::vector<std::string> lines = Get();
        return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
            return line.find(text) != std::string::npos;
        });
    }

private:
    static std::mutex& Lock() {
        static std::mutex lock;
        return lock;
    }
    static std::vector<std::string>& Lines() {
        static std::vector<std::string> lines;
        return lines;
    }
    static void Collect(const char* line) {
        const std::lock_guard<std::mutex> guard(Lock());
        const std::string text(line);
        Lines().push_back(text.substr(text.find('|') + 1));
    }

    CXLogSink m_earlier;
};
