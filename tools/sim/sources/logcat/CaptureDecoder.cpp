#include "sources/logcat/CaptureDecoder.h"

#include <cerrno>
#include <stdexcept>

#include <iconv.h>

namespace ryxsim {

namespace {

// U+FFFD in UTF-8: for a unit that is no character.
constexpr char kReplacementUtf8[] = "\xEF\xBF\xBD";

}  // namespace

std::string withoutEscapes(std::string_view line) {
    std::string out;
    out.reserve(line.size());
    for (size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '\x1b' && i + 1 < line.size() && line[i + 1] == '[') {
            size_t j = i + 2;
            while (j < line.size() && !((line[j] >= '@' && line[j] <= '~') && line[j] != '[')) {
                ++j;
            }
            i = j;  // past the final byte
            continue;
        }
        out += line[i];
    }
    return out;
}

char const* CaptureDecoder::encoding() const {
    switch (mEncoding) {
        case Encoding::Utf8Bom:
            return "UTF-8 with a byte-order mark";
        case Encoding::Utf16Le:
            return "UTF-16LE";
        case Encoding::Utf16Be:
            return "UTF-16BE";
        default:
            return "UTF-8";
    }
}

void CaptureDecoder::detect() {
    std::string_view h = mHead;
    if (h.substr(0, 3) == "\xEF\xBB\xBF") {
        mEncoding = Encoding::Utf8Bom;
        h.remove_prefix(3);
    } else if (h.substr(0, 2) == "\xFF\xFE") {
        mEncoding = Encoding::Utf16Le;
        h.remove_prefix(2);
    } else if (h.substr(0, 2) == "\xFE\xFF") {
        mEncoding = Encoding::Utf16Be;
        h.remove_prefix(2);
    } else if (h.size() >= 4 && h[1] == '\0' && h[3] == '\0' && h[0] != '\0') {
        mEncoding = Encoding::Utf16Le;  // no mark: ASCII text in 16-bit units
    } else if (h.size() >= 4 && h[0] == '\0' && h[2] == '\0' && h[1] != '\0') {
        mEncoding = Encoding::Utf16Be;
    } else {
        mEncoding = Encoding::Utf8;
    }
    std::string rest(h);
    mHead.clear();
    feed(rest);
}

void CaptureDecoder::feed(std::string_view bytes) {
    if (mEncoding == Encoding::Unknown) {
        mHead.append(bytes);
        if (mHead.size() >= 4) {
            detect();
        }
        return;
    }
    if (mEncoding == Encoding::Utf16Le || mEncoding == Encoding::Utf16Be) {
        decodeUtf16(bytes);
    } else {
        text(bytes);
    }
}

void CaptureDecoder::IconvClose::operator()(void* cd) const {
    iconv_close(static_cast<iconv_t>(cd));
}

// Through iconv; a unit that is no character (half a surrogate pair alone) becomes U+FFFD and
// the text goes on after it. A unit or pair split between chunks waits for the next one.
void CaptureDecoder::decodeUtf16(std::string_view bytes) {
    if (!mUtf16) {
        iconv_t cd = iconv_open("UTF-8", mEncoding == Encoding::Utf16Le ? "UTF-16LE" : "UTF-16BE");
        if (cd == reinterpret_cast<iconv_t>(-1)) {
            throw std::runtime_error("this system's iconv cannot read UTF-16");
        }
        mUtf16.reset(cd);
    }
    mPending.append(bytes);
    std::string out(mPending.size() * 2 + 8, '\0');  // UTF-8 takes at most 3 bytes per 2
    char* in = mPending.data();
    size_t inLeft = mPending.size();
    char* to = out.data();
    size_t toLeft = out.size();
    while (inLeft >= 2) {
        if (iconv(static_cast<iconv_t>(mUtf16.get()), &in, &inLeft, &to, &toLeft) !=
                static_cast<size_t>(-1) ||
            errno == EINVAL) {
            break;  // all converted, or the rest is the start of a unit or pair
        }
        // EILSEQ: a lone half of a pair (out holds room for its replacement).
        for (char c : std::string_view(kReplacementUtf8)) {
            *to++ = c;
            --toLeft;
        }
        in += 2;
        inLeft -= 2;
    }
    out.resize(out.size() - toLeft);
    mPending.erase(0, mPending.size() - inLeft);
    text(out);
}

void CaptureDecoder::text(std::string_view utf8) {
    for (char c : utf8) {
        if (c == '\n') {
            emit();
        } else {
            mLine += c;
        }
    }
}

void CaptureDecoder::emit() {
    if (!mLine.empty() && mLine.back() == '\r') {
        mLine.pop_back();
    }
    if (mLine.find('\x1b') != std::string::npos) {
        mLine = withoutEscapes(mLine);
    }
    mSink(mLine);
    mLine.clear();
}

void CaptureDecoder::finish() {
    if (mEncoding == Encoding::Unknown) {
        detect();
    }
    if (!mPending.empty()) {  // a unit or a pair cut by the end of the capture
        mPending.clear();
        text(kReplacementUtf8);
    }
    if (!mLine.empty()) {
        mEndedMidLine = true;
        emit();
    }
}

}  // namespace ryxsim
