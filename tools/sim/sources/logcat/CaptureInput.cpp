#include "sources/logcat/CaptureInput.h"

#include "sources/logcat/LibraryLine.h"

#include <archive.h>
#include <archive_entry.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

namespace ryxsim {

namespace {

constexpr size_t kChunk = 1 << 16;

// Zip, gzip, bzip2, xz and zstd by their magic numbers; a tar (whose first bytes are a file
// name) by its name only. A log line starts with none of them.
bool looksPacked(std::string_view head, std::string const& path) {
    for (std::string_view magic :
         {std::string_view("PK\x03\x04", 4), std::string_view("PK\x05\x06", 4),
          std::string_view("\x1f\x8b", 2), std::string_view("BZh", 3),
          std::string_view("\xfd"
                           "7zXZ",
                           5),
          std::string_view("\x28\xb5\x2f\xfd", 4)}) {
        if (startsWith(head, magic)) {
            return true;
        }
    }
    return endsWith(path, ".tar");
}

// Reads into `into` until it holds `want` bytes or the input ends; false on a read error.
bool readSome(int fd, std::string& into, size_t want) {
    char buf[kChunk];
    while (into.size() < want) {
        ssize_t n = ::read(fd, buf, std::min(sizeof buf, want - into.size()));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return n == 0;
        }
        into.append(buf, static_cast<size_t>(n));
    }
    return true;
}

// Waits until `fd` can be read, asking `interrupted` every quarter second (a signal that came
// just before the wait would otherwise go unseen); false once it says stop.
bool waitReadable(int fd, std::function<bool()> const& interrupted) {
    pollfd p{fd, POLLIN, 0};
    for (;;) {
        if (interrupted()) {
            return false;
        }
        int ready = ::poll(&p, 1, 250);
        if (ready > 0 || (ready < 0 && errno != EINTR)) {
            return true;  // readable, closed, or an error the read will report
        }
    }
}

std::string systemError(char const* what) {
    return std::string(what) + ": " + std::strerror(errno);
}

struct ArchiveCloser {
    void operator()(archive* a) const { archive_read_free(a); }
};
using Archive = std::unique_ptr<archive, ArchiveCloser>;

// An archive opened on the file, or on `memory` for standard input.
Archive openArchive(std::string const& path, std::string const& memory, std::string& error) {
    Archive a(archive_read_new());
    archive_read_support_filter_all(a.get());
    archive_read_support_format_zip(a.get());
    archive_read_support_format_tar(a.get());
    archive_read_support_format_gnutar(a.get());
    archive_read_support_format_raw(a.get());  // a compressed capture: one stream, no entries
    int r = path == "-" ? archive_read_open_memory(a.get(), memory.data(), memory.size())
                        : archive_read_open_filename(a.get(), path.c_str(), kChunk);
    if (r != ARCHIVE_OK) {
        error = std::string("cannot unpack it: ") + archive_error_string(a.get());
        a.reset();
    }
    return a;
}

bool isTombstone(std::string_view name) {
    return name.find("tombstones/tombstone_") != std::string_view::npos && !endsWith(name, ".pb");
}

// Calls `sink` with the current entry's bytes in chunks.
std::string readEntry(archive* a, std::function<void(std::string_view)> const& sink) {
    char buf[kChunk];
    for (;;) {
        la_ssize_t n = archive_read_data(a, buf, sizeof buf);
        if (n < 0) {
            return std::string("cannot unpack it: ") + archive_error_string(a);
        }
        if (n == 0) {
            return "";
        }
        sink(std::string_view(buf, static_cast<size_t>(n)));
    }
}

struct Listing {
    std::vector<std::string> files;
    std::string mainEntry;  // what main_entry.txt names
    bool raw = false;       // a compressed stream, not an archive
};

std::string list(std::string const& path, std::string const& memory, Listing& out) {
    std::string error;
    Archive a = openArchive(path, memory, error);
    if (!a) {
        return error;
    }
    archive_entry* e = nullptr;
    int r;
    while ((r = archive_read_next_header(a.get(), &e)) == ARCHIVE_OK) {
        out.raw = archive_format(a.get()) == ARCHIVE_FORMAT_RAW;
        if (archive_entry_filetype(e) != AE_IFREG) {
            continue;
        }
        std::string name = archive_entry_pathname(e) ? archive_entry_pathname(e) : "";
        out.files.push_back(name);
        if (name == "main_entry.txt") {
            error = readEntry(a.get(), [&](std::string_view b) { out.mainEntry.append(b); });
            while (!out.mainEntry.empty() &&
                   std::isspace(static_cast<unsigned char>(out.mainEntry.back()))) {
                out.mainEntry.pop_back();
            }
        }
    }
    if (r != ARCHIVE_EOF) {
        return std::string("cannot unpack it: ") + archive_error_string(a.get());
    }
    return error;
}

// The entry that holds the capture, or "" with `error` set.
std::string chooseEntry(Listing const& l, std::string& error) {
    if (!l.mainEntry.empty()) {
        for (auto const& f : l.files) {
            if (f == l.mainEntry) {
                return f;
            }
        }
        error = "main_entry.txt names '" + l.mainEntry + "', which the archive does not hold";
        return "";
    }
    std::vector<std::string> reports;
    for (auto const& f : l.files) {
        std::string base = f.substr(f.rfind('/') + 1);
        if (startsWith(base, "bugreport") && endsWith(base, ".txt")) {
            reports.push_back(f);
        }
    }
    if (reports.size() == 1) {
        return reports.front();
    }
    if (l.files.size() == 1) {
        return l.files.front();
    }
    error = "an archive of " + std::to_string(l.files.size()) +
            " files without main_entry.txt or one bugreport-*.txt: which is the capture? "
            "(unpack it and name the file)";
    return "";
}

std::string readArchive(std::string const& path, std::string const& memory, CaptureInput const& to,
                        std::string& entry) {
    Listing listing;
    if (std::string e = list(path, memory, listing); !e.empty()) {
        return e;
    }
    std::string error;
    std::string chosen = chooseEntry(listing, error);
    if (chosen.empty()) {
        return error;
    }
    entry = listing.raw ? "" : chosen;
    Archive a = openArchive(path, memory, error);
    if (!a) {
        return error;
    }
    archive_entry* e = nullptr;
    while (archive_read_next_header(a.get(), &e) == ARCHIVE_OK) {
        std::string name = archive_entry_pathname(e) ? archive_entry_pathname(e) : "";
        if (archive_entry_filetype(e) != AE_IFREG) {
            continue;
        }
        if (name == chosen) {
            error = readEntry(a.get(), to.capture);
        } else if (isTombstone(name) && to.tombstone) {
            std::string bytes;
            error = readEntry(a.get(), [&](std::string_view b) { bytes.append(b); });
            to.tombstone(name, bytes);
        }
        if (!error.empty()) {
            return error;
        }
    }
    return "";
}

}  // namespace

std::string readCaptureInput(std::string const& path, CaptureInput const& to, std::string& entry) {
    entry.clear();
    int fd = path == "-" ? 0 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return systemError("cannot read the file");
    }
    std::string error = readCaptureFd(fd, path, to, entry);
    if (fd > 0) {
        ::close(fd);
    }
    return error;
}

std::string readCaptureFd(int fd, std::string const& path, CaptureInput const& to,
                          std::string& entry) {
    std::string head;
    if (!readSome(fd, head, 6)) {
        return systemError("cannot read the file");
    }
    if (looksPacked(head, path)) {
        std::string memory;
        if (path == "-") {
            memory = std::move(head);  // a stream cannot be read twice: kept whole
            if (!readSome(fd, memory, SIZE_MAX)) {
                return systemError("cannot read standard input");
            }
        }
        return readArchive(path, memory, to, entry);
    }
    to.capture(head);
    for (;;) {
        if (to.interrupted && !waitReadable(fd, to.interrupted)) {
            return "";
        }
        char buf[kChunk];
        ssize_t n = ::read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) {
            if (to.interrupted && to.interrupted()) {
                return "";
            }
            continue;
        }
        if (n < 0) {
            return systemError("cannot read the file");
        }
        if (n == 0) {
            return "";
        }
        to.capture(std::string_view(buf, static_cast<size_t>(n)));
    }
}

}  // namespace ryxsim
