#pragma once
// The few string operations the tool needs everywhere, in one place.

#include <string>
#include <string_view>
#include <vector>

namespace ryxsim {

inline bool startsWith(std::string_view s, std::string_view prefix) {
    return s.substr(0, prefix.size()) == prefix;
}

inline bool endsWith(std::string_view s, std::string_view suffix) {
    return s.size() >= suffix.size() && s.substr(s.size() - suffix.size()) == suffix;
}

// Without the spaces, tabs and carriage returns around it.
inline std::string trim(std::string_view s) {
    size_t b = s.find_first_not_of(" \t\r");
    if (b == std::string_view::npos) {
        return {};
    }
    return std::string(s.substr(b, s.find_last_not_of(" \t\r") - b + 1));
}

// The pieces between the separators: "a,,b" is three pieces, "" one empty piece.
inline std::vector<std::string> split(std::string_view s, char sep) {
    std::vector<std::string> out;
    for (size_t at = 0;;) {
        size_t next = s.find(sep, at);
        out.emplace_back(s.substr(at, next == std::string_view::npos ? s.npos : next - at));
        if (next == std::string_view::npos) {
            return out;
        }
        at = next + 1;
    }
}

// The items with `sep` between them.
inline std::string join(std::vector<std::string> const& items, std::string const& sep) {
    std::string out;
    for (size_t i = 0; i < items.size(); ++i) {
        out += (i ? sep : std::string()) + items[i];
    }
    return out;
}

}  // namespace ryxsim
