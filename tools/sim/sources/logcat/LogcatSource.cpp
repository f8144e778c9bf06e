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
                                     FollowOptions const* follow) {
    CaptureFeed feed(name.empty() ? path : name, follow);
    return feed.read(readCaptureInput(path, feed.input(), feed.entry));
}

std::vector<Timeline> followLogcat(int fd, std::string const& name, FollowOptions const& options) {
    CaptureFeed feed(name, &options);
    return feed.read(readCaptureFd(fd, "-", feed.input(), feed.entry));
}

}  // namespace ryxsim
