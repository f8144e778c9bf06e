// The bytes of a capture as lines: UTF-8 with and without its mark, UTF-16 in either byte order
// with its mark or told by its zero bytes, characters beyond 16 bits as surrogate pairs, halves
// of a pair alone, CRLF, colour escapes and a last line without its end. Every capture is fed
// whole, a byte at a time, and cut at every point into two and three chunks, so that a unit or a
// pair split between chunks is read as one.

#include "Watchdog.h"
#include "sources/logcat/CaptureDecoder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace ryxsim;

namespace {

using namespace std::chrono_literals;

char const kCamera[] = "\xF0\x9F\x93\xB7";  // U+1F4F7 in UTF-8
char const kLost[] = "\xEF\xBF\xBD";        // U+FFFD

enum class Order { Le, Be };

// `text` as UTF-16 bytes, with the byte-order mark when `mark`.
std::string utf16(std::u16string const& text, Order order, bool mark) {
    std::string out;
    auto put = [&](char16_t u) {
        char hi = static_cast<char>(u >> 8), lo = static_cast<char>(u & 0xFF);
        out += order == Order::Le ? std::string{lo, hi} : std::string{hi, lo};
    };
    if (mark) {
        put(0xFEFF);
    }
    for (char16_t u : text) {
        put(u);
    }
    return out;
}

struct Decoded {
    std::vector<std::string> lines;
    std::string encoding;
    bool endedMidLine = false;

    bool operator==(Decoded const& o) const {
        return lines == o.lines && encoding == o.encoding && endedMidLine == o.endedMidLine;
    }
};

std::ostream& operator<<(std::ostream& os, Decoded const& d) {
    os << d.encoding << (d.endedMidLine ? ", ended mid-line:" : ":");
    for (auto const& l : d.lines) {
        os << " [" << l << "]";
    }
    return os;
}

// `bytes` fed in the chunks that end at `cuts` (ascending) and at its end.
Decoded decode(std::string const& bytes, std::vector<size_t> const& cuts) {
    Decoded d;
    CaptureDecoder decoder([&](std::string_view line) { d.lines.emplace_back(line); });
    size_t at = 0;
    for (size_t cut : cuts) {
        decoder.feed(std::string_view(bytes).substr(at, cut - at));
        at = cut;
    }
    decoder.feed(std::string_view(bytes).substr(at));
    decoder.finish();
    d.encoding = decoder.encoding();
    d.endedMidLine = decoder.endedMidLine();
    return d;
}

// Whole, a byte at a time, and in two and three chunks cut anywhere: always `want`.
void expectInEveryChunking(std::string const& bytes, Decoded const& want) {
    ryxtest::Watchdog dog("decoding " + std::to_string(bytes.size()) + " bytes", 20s);
    EXPECT_EQ(decode(bytes, {}), want) << "whole";
    std::vector<size_t> everyByte;
    for (size_t i = 1; i < bytes.size(); ++i) {
        everyByte.push_back(i);
    }
    EXPECT_EQ(decode(bytes, everyByte), want) << "a byte at a time";
    for (size_t a = 0; a <= bytes.size(); ++a) {
        ASSERT_EQ(decode(bytes, {a}), want) << "cut at " << a;
        for (size_t b = a; b <= bytes.size(); ++b) {
            ASSERT_EQ(decode(bytes, {a, b}), want) << "cut at " << a << " and " << b;
        }
    }
}

struct Case {
    char const* what;
    std::string bytes;
    Decoded want;
};

void expectCases(std::vector<Case> const& cases) {
    for (auto const& c : cases) {
        SCOPED_TRACE(c.what);
        expectInEveryChunking(c.bytes, c.want);
    }
}

std::u16string const kTwoLines = u"11-22 21:48:47.438 D T: a\nb\n";
std::vector<std::string> const kTwoLinesRead = {"11-22 21:48:47.438 D T: a", "b"};

}  // namespace

TEST(CaptureDecoder, ReadsEachEncodingByItsMarkOrItsZeroBytes) {
    expectCases({
        {"UTF-8", "11-22 21:48:47.438 D T: a\nb\n", {kTwoLinesRead, "UTF-8", false}},
        {"UTF-8 with its mark",
         "\xEF\xBB\xBF"
         "11-22 21:48:47.438 D T: a\nb\n",
         {kTwoLinesRead, "UTF-8 with a byte-order mark", false}},
        {"UTF-16LE with its mark",
         utf16(kTwoLines, Order::Le, true),
         {kTwoLinesRead, "UTF-16LE", false}},
        {"UTF-16BE with its mark",
         utf16(kTwoLines, Order::Be, true),
         {kTwoLinesRead, "UTF-16BE", false}},
        {"UTF-16LE without a mark",
         utf16(kTwoLines, Order::Le, false),
         {kTwoLinesRead, "UTF-16LE", false}},
        {"UTF-16BE without a mark",
         utf16(kTwoLines, Order::Be, false),
         {kTwoLinesRead, "UTF-16BE", false}},
        {"a mark alone", "\xFF\xFE", {{}, "UTF-16LE", false}},
        {"a capture shorter than a mark", "a\n", {{"a"}, "UTF-8", false}},
    });
}

TEST(CaptureDecoder, TurnsEveryCharacterIntoUtf8) {
    std::u16string const text = u"cam \U0001F4F7 \u00e9\u20ac\n\U0001F4F7\U0001F4F7\n";
    std::vector<std::string> const read = {std::string("cam ") + kCamera + " \xC3\xA9\xE2\x82\xAC",
                                           std::string(kCamera) + kCamera};
    expectCases({
        {"pairs, UTF-16LE", utf16(text, Order::Le, true), {read, "UTF-16LE", false}},
        {"pairs, UTF-16BE", utf16(text, Order::Be, true), {read, "UTF-16BE", false}},
        {"pairs, UTF-16LE without a mark",
         utf16(text, Order::Le, false),
         {read, "UTF-16LE", false}},
        {"pairs, UTF-16BE without a mark",
         utf16(text, Order::Be, false),
         {read, "UTF-16BE", false}},
        {"UTF-8 passed as it is",
         std::string("cam ") + kCamera + " \xC3\xA9\xE2\x82\xAC\n" + kCamera + kCamera + "\n",
         {read, "UTF-8", false}},
    });
}

// A half of a pair alone is no character: U+FFFD, and the unit after it is still read.
TEST(CaptureDecoder, AHalfOfAPairAloneReadsAsReplacement) {
    std::u16string const lowAlone = u"a" + std::u16string(1, 0xDCF7) + u"b\n";
    std::u16string const highThenLetter = u"a" + std::u16string(1, 0xD83D) + u"b\n";
    std::u16string const highThenLineEnd = u"a" + std::u16string(1, 0xD83D) + u"\nc\n";
    std::u16string const highTwice = std::u16string(1, 0xD83D) + u"\U0001F4F7\n";
    std::u16string const highAtTheEnd = u"a\nb" + std::u16string(1, 0xD83D);
    for (Order order : {Order::Le, Order::Be}) {
        char const* name = order == Order::Le ? "UTF-16LE" : "UTF-16BE";
        SCOPED_TRACE(name);
        expectCases({
            {"second half alone",
             utf16(lowAlone, order, true),
             {{std::string("a") + kLost + "b"}, name, false}},
            {"first half before a letter",
             utf16(highThenLetter, order, true),
             {{std::string("a") + kLost + "b"}, name, false}},
            {"first half before a line end",
             utf16(highThenLineEnd, order, true),
             {{std::string("a") + kLost, "c"}, name, false}},
            {"first half before a pair",
             utf16(highTwice, order, true),
             {{kLost + std::string(kCamera)}, name, false}},
            {"first half cut by the end",
             utf16(highAtTheEnd, order, true),
             {{"a", std::string("b") + kLost}, name, true}},
            {"a byte cut by the end",
             utf16(u"a\nb", order, true) + "x",
             {{"a", std::string("b") + kLost}, name, true}},
        });
    }
}

TEST(CaptureDecoder, LineEndsEscapesAndACutLastLine) {
    expectCases({
        {"CRLF", "a\r\n\r\nb\r\n", {{"a", "", "b"}, "UTF-8", false}},
        {"CRLF, UTF-16LE",
         utf16(u"a\r\n\r\nb\r\n", Order::Le, true),
         {{"a", "", "b"}, "UTF-16LE", false}},
        {"a CR inside a line stays", "a\rb\n", {{"a\rb"}, "UTF-8", false}},
        {"colour escapes", "\x1b[38;5;75mD T: a\x1b[0m\nb\n", {{"D T: a", "b"}, "UTF-8", false}},
        {"colour escapes, UTF-16BE",
         utf16(u"\x1b[31mE T: a\x1b[0m\n", Order::Be, true),
         {{"E T: a"}, "UTF-16BE", false}},
        {"last line without its end", "a\nb c", {{"a", "b c"}, "UTF-8", true}},
        {"last line without its end, UTF-8 with its mark",
         "\xEF\xBB\xBF"
         "a\nb",
         {{"a", "b"}, "UTF-8 with a byte-order mark", true}},
        {"last line without its end, UTF-16BE",
         utf16(u"a\nb", Order::Be, false),
         {{"a", "b"}, "UTF-16BE", true}},
        {"a pair ends the capture",
         utf16(u"a\n\U0001F4F7", Order::Le, true),
         {{"a", kCamera}, "UTF-16LE", true}},
        {"an empty capture", "", {{}, "UTF-8", false}},
    });
}
