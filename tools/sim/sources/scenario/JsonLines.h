#pragma once
// Where each member of a JSON text starts: maps a field path ("sensors[1].jitter_us") to the line
// of its key (or of the element, inside arrays), so that errors found after parsing can name a
// line. Tolerates malformed text: it indexes what it can read.

#include <cstddef>
#include <string>
#include <vector>

namespace ryxsim {

class JsonLines {
  public:
    explicit JsonLines(std::string const& text);

    // Line of `path`, or of its closest indexed parent; 1 for the root.
    int lineOf(std::string const& path) const;

    // The last field whose key starts before byte `offset`, and its line ("" and 1 when none).
    std::pair<std::string, int> fieldBefore(size_t offset) const;

    // Line of byte `offset`.
    int lineAt(size_t offset) const;

  private:
    class Indexer;

    struct Entry {
        std::string path;
        size_t offset;
        int line;
    };
    std::vector<Entry> mEntries;
    std::vector<size_t> mLineStarts;
};

// "a.b[2].c" without its last component: "a.b[2]"; "" for a top-level field.
std::string parentPath(std::string const& path);

}  // namespace ryxsim
