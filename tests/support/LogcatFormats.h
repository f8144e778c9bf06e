#pragma once
// Captures printed by Android's own logcat formatter (liblog's android_log_formatLogLine), in
// any format and modifiers, from the entries of a 'threadtime' capture: what a user saves with
// 'adb logcat -v FORMAT,MODIFIERS', made from a simulated run's own log lines.

#include <android/log.h>
#include <log/logprint.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace ryxtest {

struct LogEntry {
    int64_t sec = 0, nsec = 0;
    int pid = 0, tid = 0, uid = 1047;
    android_LogPriority priority = ANDROID_LOG_DEBUG;
    std::string tag, message;
};

// The entries of a threadtime capture ("MM-DD HH:MM:SS.mmm  PID  TID L TAG: message"), dated in
// November 2024 (threadtime has no year).
inline std::vector<LogEntry> entriesOfThreadtime(std::string const& text) {
    static std::regex const line(
        R"(^(\d\d)-(\d\d) (\d\d):(\d\d):(\d\d)\.(\d{3}) +(\d+) +(\d+) ([VDIWEF]) (.*?): (.*)$)");
    std::vector<LogEntry> out;
    std::istringstream in(text);
    for (std::string s; std::getline(in, s);) {
        std::smatch m;
        if (!std::regex_match(s, m, line)) {
            continue;
        }
        std::tm tm{};
        tm.tm_year = 124;
        tm.tm_mon = std::stoi(m[1]) - 1;
        tm.tm_mday = std::stoi(m[2]);
        tm.tm_hour = std::stoi(m[3]);
        tm.tm_min = std::stoi(m[4]);
        tm.tm_sec = std::stoi(m[5]);
        LogEntry e;
        e.sec = timegm(&tm);
        e.nsec = std::stoll(m[6]) * 1000000;
        e.pid = std::stoi(m[7]);
        e.tid = std::stoi(m[8]);
        e.priority = static_cast<android_LogPriority>(std::string("??VDIWEF").find(m[9].str()[0]));
        e.tag = m[10];
        e.message = m[11];
        out.push_back(e);
    }
    return out;
}

// One entry printed through liblog in `format`, as logcat prints it (with its line end; a 'long'
// entry takes more than one line).
inline std::string formatEntry(AndroidLogFormat* format, LogEntry const& e) {
    AndroidLogEntry entry{};
    entry.tv_sec = static_cast<time_t>(e.sec);
    entry.tv_nsec = static_cast<long>(e.nsec);
    entry.priority = e.priority;
    entry.uid = e.uid;
    entry.pid = e.pid;
    entry.tid = e.tid;
    entry.tag = e.tag.c_str();
    entry.tagLen = e.tag.size();
    entry.message = e.message.c_str();
    entry.messageLen = e.message.size();
    char buf[1024];
    size_t length = 0;
    char* line = android_log_formatLogLine(format, buf, sizeof buf, &entry, &length);
    std::string out(line, length);
    if (line != buf) {
        std::free(line);
    }
    return out;
}

// A logcat format with `formats` ("long", "epoch", "usec", ...), one android_log_setPrintFormat
// each, as 'logcat -v long,epoch,usec' sets it up. Free it with android_log_format_free.
inline AndroidLogFormat* logcatFormat(std::vector<std::string> const& formats) {
    AndroidLogFormat* format = android_log_format_new();
    for (auto const& f : formats) {
        android_log_setPrintFormat(format, android_log_formatFromString(f.c_str()));
    }
    return format;
}

// A capture's lines, counted from 1 as the report counts them (lines[0] is empty).
inline std::vector<std::string> linesOf(std::string const& text) {
    std::vector<std::string> lines{""};
    std::istringstream in(text);
    for (std::string s; std::getline(in, s);) {
        lines.push_back(s);
    }
    return lines;
}

// The entries printed through liblog with `formats`.
inline std::string formatCapture(std::vector<LogEntry> const& entries,
                                 std::vector<std::string> const& formats) {
    AndroidLogFormat* format = logcatFormat(formats);
    std::string out = "--------- beginning of main\n";
    for (auto const& e : entries) {
        out += formatEntry(format, e);
    }
    android_log_format_free(format);
    return out;
}

}  // namespace ryxtest
