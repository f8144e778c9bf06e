#include "sources/logcat/LogcatSource.h"

#include "sources/logcat/CaptureDecoder.h"
#include "sources/logcat/CaptureInput.h"
#include "sources/logcat/CaptureSections.h"

#include <memory>

namespace ryxsim {

namespace {

std::vector<Timeline> finishDecoding(CaptureDecoder& decoder, CaptureSections& sections) {
    decoder.finish();
    if (decoder.endedMidLine()) {
        sections.lastLineCut();
    }
    return sections.finish();
}

}  // namespace

std::vector<Timeline> readLogcat(std::string_view text, std::string const& fileName) {
    CaptureSections sections(fileName);
    CaptureDecoder decoder([&](std::string_view line) { sections.line(line); });
    decoder.feed(text);
    return finishDecoding(decoder, sections);
}

std::vector<Timeline> readLogcatFile(std::string const& path, std::string const& name) {
    std::string shown = name.empty() ? path : name;
    std::string entry;
    std::unique_ptr<CaptureSections> sections;
    std::unique_ptr<CaptureDecoder> decoder;
    auto start = [&] {
        if (!sections) {  // once the archive entry, if any, is known
            sections =
                std::make_unique<CaptureSections>(entry.empty() ? shown : shown + ":" + entry);
            decoder = std::make_unique<CaptureDecoder>(
                [&](std::string_view line) { sections->line(line); });
        }
    };
    CaptureInput to;
    to.capture = [&](std::string_view bytes) {
        start();
        decoder->feed(bytes);
    };
    to.tombstone = [&](std::string const& where, std::string_view bytes) {
        start();
        CaptureDecoder lines([&](std::string_view l) { sections->tombstoneLine(l, where); });
        lines.feed(bytes);
        lines.finish();
    };
    if (std::string e = readCaptureInput(path, to, entry); !e.empty()) {
        throw ParseError(shown, 0, "", e);
    }
    start();
    return finishDecoding(*decoder, *sections);
}

}  // namespace ryxsim
