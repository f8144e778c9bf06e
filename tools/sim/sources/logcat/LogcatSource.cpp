#include "sources/logcat/LogcatSource.h"

#include "sources/logcat/CaptureDecoder.h"
#include "sources/logcat/CaptureReader.h"

#include <fstream>

namespace ryxsim {

std::vector<Timeline> readLogcat(std::string_view text, std::string const& fileName) {
    CaptureReader reader(fileName);
    CaptureDecoder decoder([&](std::string_view line) { reader.line(line); });
    decoder.feed(text);
    decoder.finish();
    if (decoder.endedMidLine()) {
        reader.lastLineCut();
    }
    return reader.finish();
}

std::vector<Timeline> readLogcatFile(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw ParseError(path, 0, "", "cannot read the file");
    }
    CaptureReader reader(path);
    CaptureDecoder decoder([&](std::string_view line) { reader.line(line); });
    std::string chunk(1 << 16, '\0');
    while (in.read(chunk.data(), static_cast<std::streamsize>(chunk.size())) || in.gcount() > 0) {
        decoder.feed(std::string_view(chunk.data(), static_cast<size_t>(in.gcount())));
    }
    decoder.finish();
    if (decoder.endedMidLine()) {
        reader.lastLineCut();
    }
    return reader.finish();
}

}  // namespace ryxsim
