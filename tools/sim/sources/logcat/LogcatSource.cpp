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

namespace {

// Decodes the capture's bytes into its sections once the archive entry, if any, is known.
class CaptureFeed {
  public:
    CaptureFeed(std::string name, FollowOptions const* follow)
        : mName(std::move(name)), mFollow(follow) {}

    CaptureInput input() {
        CaptureInput to;
        to.capture = [this](std::string_view bytes) { decoder().feed(bytes); };
        to.tombstone = [this](std::string const& where, std::string_view bytes) {
            decoder();
            CaptureDecoder lines([&](std::string_view l) { mSections->tombstoneLine(l, where); });
            lines.feed(bytes);
            lines.finish();
        };
        if (mFollow) {
            to.interrupted = mFollow->interrupted;
        }
        return to;
    }

    std::vector<Timeline> read(std::string const& error) {
        if (!error.empty()) {
            throw ParseError(mName, 0, "", error);
        }
        decoder();
        return finishDecoding(*mDecoder, *mSections);
    }

    // A system trace apart from the capture, read before the capture is finished.
    void readTrace(std::string const& path) {
        decoder();
        CaptureDecoder lines([&](std::string_view l) { mSections->traceLine(l, path); });
        CaptureInput to;
        to.capture = [&](std::string_view bytes) { lines.feed(bytes); };
        to.tombstone = [](std::string const&, std::string_view) {};
        std::string entry;
        if (std::string e = readCaptureInput(path, to, entry); !e.empty()) {
            throw ParseError(path, 0, "", e);
        }
        lines.finish();
    }

    std::string entry;  // the archive entry read, if any

  private:
    CaptureDecoder& decoder() {
        if (!mSections) {
            mSections =
                std::make_unique<CaptureSections>(entry.empty() ? mName : mName + ":" + entry);
            if (mFollow) {
                mSections->follow(mFollow->folded, mFollow->cameraNames);
            }
            mDecoder = std::make_unique<CaptureDecoder>(
                [this](std::string_view line) { mSections->line(line); });
        }
        return *mDecoder;
    }

    std::string mName;
    FollowOptions const* mFollow;
    std::unique_ptr<CaptureSections> mSections;
    std::unique_ptr<CaptureDecoder> mDecoder;
};

}  // namespace

std::vector<Timeline> readLogcatFile(std::string const& path, std::string const& name,
                                     FollowOptions const* follow, std::string const& systemTrace) {
    CaptureFeed feed(name.empty() ? path : name, follow);
    std::string error = readCaptureInput(path, feed.input(), feed.entry);
    if (!systemTrace.empty() && error.empty()) {
        feed.readTrace(systemTrace);
    }
    return feed.read(error);
}

std::vector<Timeline> followLogcat(int fd, std::string const& name, FollowOptions const& options) {
    CaptureFeed feed(name, &options);
    return feed.read(readCaptureFd(fd, "-", feed.input(), feed.entry));
}

}  // namespace ryxsim
