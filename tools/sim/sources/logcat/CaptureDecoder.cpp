#include "sources/logcat/CaptureDecoder.h"

namespace ryxsim {

namespace {

constexpr uint32_t kReplacement = 0xFFFD;  // for a unit that is no character

void appendUtf8(std::string& out, uint32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

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

void CaptureDecoder::decodeUtf16(std::string_view bytes) {
    mPending.append(bytes);
    std::string out;
    size_t i = 0;
    bool le = mEncoding == Encoding::Utf16Le;
    auto unit = [&](size_t at) {
        auto b0 = static_cast<unsigned char>(mPending[at]);
        auto b1 = static_cast<unsigned char>(mPending[at + 1]);
        return static_cast<uint32_t>(le ? b0 | (b1 << 8) : (b0 << 8) | b1);
    };
    while (i + 2 <= mPending.size()) {
        uint32_t u = unit(i);
        if (u >= 0xD800 && u < 0xDC00) {
            if (i + 4 > mPending.size()) {
                break;  // the pair's second half comes with the next chunk
            }
            uint32_t low = unit(i + 2);
            if (low >= 0xDC00 && low < 0xE000) {
                appendUtf8(out, 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
                i += 4;
                continue;
            }
            u = kReplacement;  // a first half alone: the unit after it is read on its own
        } else if (u >= 0xDC00 && u < 0xE000) {
            u = kReplacement;  // a second half alone
        }
        appendUtf8(out, u);
        i += 2;
    }
    mPending.erase(0, i);
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
        std::string lost;
        appendUtf8(lost, kReplacement);
        text(lost);
    }
    if (!mLine.empty()) {
        mEndedMidLine = true;
        emit();
    }
}

}  // namespace ryxsim
