#pragma once
// The bytes of a capture as the lines of text the log reader parses: UTF-8 with or without a
// byte-order mark, UTF-16 (little or big endian, with its mark, as a Windows shell redirect
// saves it) turned into UTF-8, CRLF or LF line ends, and the colour escapes of 'logcat -v color'
// taken out. Fed in chunks of any size, so that a capture (or a stream) is never held whole.

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace ryxsim {

class CaptureDecoder {
  public:
    using LineSink = std::function<void(std::string_view line)>;

    explicit CaptureDecoder(LineSink sink) : mSink(std::move(sink)) {}

    void feed(std::string_view bytes);
    // The last line, when the capture does not end with a line end.
    void finish();

    // After finish: the capture's last line had no line end (the capture was cut in it).
    bool endedMidLine() const { return mEndedMidLine; }

    // "UTF-8", "UTF-8 with a byte-order mark", "UTF-16LE" or "UTF-16BE".
    char const* encoding() const;

  private:
    enum class Encoding { Unknown, Utf8, Utf8Bom, Utf16Le, Utf16Be };

    void detect();
    void decodeUtf16(std::string_view bytes);
    void text(std::string_view utf8);
    void emit();

    struct IconvClose {
        void operator()(void* cd) const;
    };

    LineSink mSink;
    Encoding mEncoding = Encoding::Unknown;
    std::unique_ptr<void, IconvClose> mUtf16;  // iconv's UTF-16 to UTF-8 converter
    std::string mHead;                         // the first bytes, until the encoding is known
    std::string mPending;                      // a UTF-16 byte or code unit split between chunks
    std::string mLine;
    bool mEndedMidLine = false;
};

// `line` without ANSI escape sequences (ESC '[' ... final letter).
std::string withoutEscapes(std::string_view line);

}  // namespace ryxsim
