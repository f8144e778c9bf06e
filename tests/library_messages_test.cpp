// The library's catalogue of messages, read back the way the tool reads the log: every entry's
// text, printed with values, is read by its own definition with those values, by no other entry,
// and the tool's readers of refusals and aborts know it by its entry. A message whose text is
// changed in the catalogue is read as changed; one that collides with another fails here.

#include "sources/LibraryMessages.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace ryxsim;

namespace {

// An entry printed with made-up values, and where its reader puts each one.
struct Printed {
    std::string text;
    std::vector<std::string> values;  // each conversion's value, as printed
};

Printed print(char const* format) {
    Printed p;
    int next = 7;
    for (char const* f = format; *f != '\0'; ++f) {
        if (*f != '%') {
            p.text += *f;
            continue;
        }
        if (f[1] == '%') {
            p.text += '%';
            ++f;
            continue;
        }
        while (std::string("0123456789.-+ #lhzj").find(f[1]) != std::string::npos) {
            ++f;
        }
        char conversion = *++f;
        std::string value = conversion == 's'   ? "name" + std::to_string(next)
                            : conversion == 'f' ? std::to_string(next) + ".25"
                            : conversion == 'p' ? "0x" + std::to_string(next)
                                                : std::to_string(next * 1000 + 1);
        p.text += value;
        p.values.push_back(value);
        ++next;
    }
    return p;
}

// Reads `text` with `format`, every conversion into text, numbers printed back.
bool readBack(std::string const& text, char const* format, std::vector<std::string>& out) {
    std::vector<long long> numbers(16);
    std::vector<double> decimals(16);
    out.assign(16, "");
    std::vector<Field> fields;
    Printed shape = print(format);
    for (size_t i = 0; i < shape.values.size(); ++i) {
        std::string const& v = shape.values[i];
        if (v.find('.') != std::string::npos) {
            fields.emplace_back(&decimals[i]);
        } else if (v[0] >= '0' && v[0] <= '9' && v.find('x') == std::string::npos) {
            fields.emplace_back(&numbers[i]);
        } else {
            fields.emplace_back(&out[i]);
        }
    }
    if (matchFormat(text, format, fields) != static_cast<long>(text.size())) {
        return false;
    }
    for (size_t i = 0; i < shape.values.size(); ++i) {
        std::string const& v = shape.values[i];
        if (v.find('.') != std::string::npos) {
            out[i] = std::to_string(static_cast<int>(decimals[i])) + ".25";
        } else if (v[0] >= '0' && v[0] <= '9' && v.find('x') == std::string::npos) {
            out[i] = std::to_string(numbers[i]);
        }
    }
    out.resize(shape.values.size());
    return true;
}

bool catchAll(LibraryMessage const& m) {
    return std::string(m.format) == "%s";
}

}  // namespace

TEST(LibraryMessages, EveryEntryIsReadBackByItselfWithItsValuesAndByNoOther) {
    ASSERT_GT(libraryMessages().size(), 60u);
    for (LibraryMessage const& m : libraryMessages()) {
        SCOPED_TRACE(std::string(m.name) + ": " + m.format);
        EXPECT_NE(std::string("DIWEF-").find(m.severity), std::string::npos);
        EXPECT_FALSE(std::string(m.meaning).empty());
        Printed p = print(m.format);
        std::vector<std::string> values;
        ASSERT_TRUE(readBack(p.text, m.format, values)) << p.text;
        EXPECT_EQ(values, p.values);
        for (LibraryMessage const& other : libraryMessages()) {
            bool same = std::string(other.format) == m.format;
            if (!same && !catchAll(other) && !catchAll(m)) {
                EXPECT_FALSE(readBack(p.text, other.format, values))
                    << "also read as " << other.name << ": " << p.text;
            }
        }
    }
}

TEST(LibraryMessages, RefusalsAndAbortsAreKnownByTheirEntries) {
    std::vector<std::string> refusals, aborts;
    for (LibraryMessage const& m : libraryMessages()) {
        Printed p = print(m.format);
        LoggedAnomaly a{};
        if (anomalyOf(p.text, a)) {
            refusals.push_back(m.name);
            // The master and the frame are the message's first two values, in its order.
            bool frameFirst = std::string(m.format).rfind("masterId", 0) != 0 &&
                              std::string(m.format).rfind("time", 0) != 0 &&
                              std::string(m.format).rfind("[cam", 0) != 0;
            EXPECT_FALSE(frameFirst) << m.name;
            EXPECT_EQ(std::to_string(a.master), p.values[0]) << m.name;
            EXPECT_EQ(std::to_string(a.frame), p.values[1]) << m.name;
            EXPECT_TRUE(refusalMessage("( 109) [operator()] " + p.text)) << m.name;
        }
        if (fatalMessage(p.text)) {
            aborts.push_back(m.name);
        }
        EXPECT_EQ(fatalMessage(p.text), m.severity == 'F') << m.name;
    }
    EXPECT_EQ(refusals, (std::vector<std::string>{"SofMissing", "ExposureMissing", "FrameInversion",
                                                  "TimeInversion"}));
    EXPECT_EQ(aborts.size(), 6u);
}

TEST(LibraryMessages, AFormatReadsTextsAsPrintfWroteThem) {
    int f = 0, c = 0;
    long long t = 0;
    std::string name, list;
    double diff = 0;
    // A %s reads up to the literal after it; repeated pieces are read one at a time.
    EXPECT_TRUE(readMessage("[syncResultCheck][f12] CamId = 3 wait(1)+", RYX_MSG_QUEUE_WAIT, &name,
                            &f, &c, kSkip));
    EXPECT_EQ(name + "/" + std::to_string(f) + "/" + std::to_string(c), "syncResultCheck/12/3");
    EXPECT_TRUE(readPrefix("Frame:4 Update cameraDropList[4,5,] to DropQueue. more",
                           RYX_MSG_REFUSAL_DROP_LIST, &f, &list));
    EXPECT_EQ(list, "4,5,");
    EXPECT_TRUE(
        readMessage("m_id(2) [f9] sync check diff = 0.000850", RYX_MSG_CHECK_DONE, &c, &f, &diff));
    EXPECT_DOUBLE_EQ(diff, 0.00085);
    EXPECT_TRUE(readMessage("need drop frame(-3)", RYX_MSG_NEED_DROP, &f));
    EXPECT_EQ(f, -3);
    std::string const two =
        "[r1:f1], CamId=0, time1=100ns, SyncId=1, time2=200ns, tolerance=5us, syncOK=1"
        "[r1:f1], CamId=0, time1=100ns, SyncId=2, time2=900ns, tolerance=5us, syncOK=0";
    long n = matchFormat(two, RYX_MSG_COMPARISON, {&f, &f, &c, &t, &c, &t, &t, &f});
    EXPECT_EQ(n, static_cast<long>(two.size() / 2));
    EXPECT_EQ(t, 5);
    // Not the message: a literal differs, a number is missing, text is left over.
    EXPECT_FALSE(readMessage("need drop frame(x)", RYX_MSG_NEED_DROP, &f));
    EXPECT_FALSE(readMessage("need drop frames(3)", RYX_MSG_NEED_DROP, &f));
    EXPECT_FALSE(readMessage("need drop frame(3) again", RYX_MSG_NEED_DROP, &f));
    EXPECT_TRUE(readPrefix("need drop frame(3) again", RYX_MSG_NEED_DROP, &f));
    EXPECT_FALSE(readMessage("need drop frame(3)", RYX_MSG_NEED_DROP, &f, &c));
}
