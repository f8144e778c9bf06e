#include "sources/scenario/JsonLines.h"

#include <cctype>

namespace ryxsim {

std::string parentPath(std::string const& path) {
    size_t cut = path.find_last_of(".[");
    return cut == std::string::npos ? std::string() : path.substr(0, cut);
}

JsonLines::JsonLines(std::string const& text) {
    mLineStarts.push_back(0);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n') {
            mLineStarts.push_back(i + 1);
        }
    }
    struct Frame {
        bool object;
        std::string path;
        size_t index = 0;
        bool expectKey = true;
    };
    std::vector<Frame> stack;
    auto memberPath = [&](std::string const& key) {
        std::string const& p = stack.back().path;
        return p.empty() ? key : p + "." + key;
    };
    // Records the start of a value inside an array (object members are recorded at their key).
    auto valueStarts = [&](size_t at) {
        if (!stack.empty() && !stack.back().object) {
            Frame& f = stack.back();
            mEntries.push_back({f.path + "[" + std::to_string(f.index) + "]", at, lineAt(at)});
        }
    };
    auto childPath = [&]() -> std::string {
        if (stack.empty()) {
            return "";
        }
        Frame& f = stack.back();
        if (f.object) {
            return mEntries.empty() ? f.path : mEntries.back().path;
        }
        return f.path + "[" + std::to_string(f.index) + "]";
    };
    size_t i = 0;
    while (i < text.size()) {
        char c = text[i];
        if (std::isspace(static_cast<unsigned char>(c))) {
            ++i;
        } else if (c == '{' || c == '[') {
            valueStarts(i);
            std::string path = childPath();
            stack.push_back({c == '{', path});
            ++i;
        } else if (c == '}' || c == ']') {
            if (!stack.empty()) {
                stack.pop_back();
            }
            ++i;
        } else if (c == ',') {
            if (!stack.empty()) {
                if (stack.back().object) {
                    stack.back().expectKey = true;
                } else {
                    ++stack.back().index;
                }
            }
            ++i;
        } else if (c == ':') {
            ++i;
        } else if (c == '"') {
            size_t start = i++;
            std::string s;
            while (i < text.size() && text[i] != '"') {
                if (text[i] == '\\' && i + 1 < text.size()) {
                    s += text[i + 1];
                    i += 2;
                } else {
                    s += text[i++];
                }
            }
            ++i;
            if (!stack.empty() && stack.back().object && stack.back().expectKey) {
                stack.back().expectKey = false;
                mEntries.push_back({memberPath(s), start, lineAt(start)});
            } else {
                valueStarts(start);
            }
        } else {
            valueStarts(i);
            while (i < text.size() && !std::isspace(static_cast<unsigned char>(text[i])) &&
                   text[i] != ',' && text[i] != '}' && text[i] != ']') {
                ++i;
            }
        }
    }
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
