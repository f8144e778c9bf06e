#include "sources/scenario/JsonLines.h"

#include <cctype>

namespace ryxsim {

std::string parentPath(std::string const& path) {
    size_t cut = path.find_last_of(".[");
    return cut == std::string::npos ? std::string() : path.substr(0, cut);
}

namespace {

// A quoted string starting at text[i]: its unescaped text; i ends past the closing quote.
std::string readString(std::string const& text, size_t& i) {
    std::string s;
    for (++i; i < text.size() && text[i] != '"';) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            s += text[i + 1];
            i += 2;
        } else {
            s += text[i++];
        }
    }
    ++i;
    return s;
}

}  // namespace

// Walks the text once, keeping a stack of the objects and arrays it is inside.
class JsonLines::Indexer {
  public:
    Indexer(JsonLines& lines, std::string const& text) : mLines(lines), mText(text) {}

    void run() {
        for (size_t i = 0; i < mText.size();) {
            char c = mText[i];
            if (std::isspace(static_cast<unsigned char>(c)) || c == ':') {
                ++i;
            } else if (c == '{' || c == '[') {
                valueStarts(i);
                std::string path = childPath();
                mStack.push_back({c == '{', path});
                ++i;
            } else if (c == '}' || c == ']') {
                if (!mStack.empty()) {
                    mStack.pop_back();
                }
                ++i;
            } else if (c == ',') {
                nextMember();
                ++i;
            } else if (c == '"') {
                size_t start = i;
                std::string s = readString(mText, i);
                keyOrValue(s, start);
            } else {
                valueStarts(i);
                while (i < mText.size() && !std::isspace(static_cast<unsigned char>(mText[i])) &&
                       mText[i] != ',' && mText[i] != '}' && mText[i] != ']') {
                    ++i;
                }
            }
        }
    }

  private:
    struct Frame {
        bool object;
        std::string path;
        size_t index = 0;
        bool expectKey = true;
    };

    void add(std::string path, size_t at) {
        mLines.mEntries.push_back({std::move(path), at, mLines.lineAt(at)});
    }

    // Records the start of a value inside an array (object members are recorded at their key).
    void valueStarts(size_t at) {
        if (!mStack.empty() && !mStack.back().object) {
            Frame& f = mStack.back();
            add(f.path + "[" + std::to_string(f.index) + "]", at);
        }
    }

    std::string childPath() const {
        if (mStack.empty()) {
            return "";
        }
        Frame const& f = mStack.back();
        if (f.object) {
            return mLines.mEntries.empty() ? f.path : mLines.mEntries.back().path;
        }
        return f.path + "[" + std::to_string(f.index) + "]";
    }

    void nextMember() {
        if (!mStack.empty()) {
            if (mStack.back().object) {
                mStack.back().expectKey = true;
            } else {
                ++mStack.back().index;
            }
        }
    }

    void keyOrValue(std::string const& s, size_t start) {
        if (!mStack.empty() && mStack.back().object && mStack.back().expectKey) {
            mStack.back().expectKey = false;
            std::string const& p = mStack.back().path;
            add(p.empty() ? s : p + "." + s, start);
        } else {
            valueStarts(start);
        }
    }

    JsonLines& mLines;
    std::string const& mText;
    std::vector<Frame> mStack;
};

JsonLines::JsonLines(std::string const& text) {
    mLineStarts.push_back(0);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n') {
            mLineStarts.push_back(i + 1);
        }
    }
    Indexer(*this, text).run();
}

int JsonLines::lineAt(size_t offset) const {
    size_t lo = 0, hi = mLineStarts.size();
    while (hi - lo > 1) {
        size_t mid = (lo + hi) / 2;
        if (mLineStarts[mid] <= offset) {
            lo = mid;
        } else {
            hi = mid;
        }
    }
    return static_cast<int>(lo) + 1;
}

int JsonLines::lineOf(std::string const& path) const {
    std::string p = path;
    while (true) {
        for (auto const& e : mEntries) {
            if (e.path == p) {
                return e.line;
            }
        }
        if (p.empty()) {
            return 1;
        }
        p = parentPath(p);
    }
}

std::pair<std::string, int> JsonLines::fieldBefore(size_t offset) const {
    std::pair<std::string, int> best{"", 1};
    for (auto const& e : mEntries) {
        if (e.offset < offset) {
            best = {e.path, e.line};
        }
    }
    return best;
}

}  // namespace ryxsim
